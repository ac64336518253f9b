# CommsUsb against emulated USB devices: the real libusb runs under
# umockdev-wrapper, which preloads libumockdev-preload. Without umockdev the
# test still builds and runs the parts that need no device, and skips the rest
# with the reason. Under ThreadSanitizer the harness carries its own
# suppressions for the uninstrumented system libraries (see usbmock.cpp).
pkg_check_modules(UMOCKDEV IMPORTED_TARGET umockdev-1.0)
find_program(UMOCKDEV_WRAPPER umockdev-wrapper)

set(usb_sources ${CMAKE_CURRENT_SOURCE_DIR}/commsusb_utest.cpp)
set(usb_libs tavro_comms)
set(usb_wrapper)
set(usb_skip "")
if(NOT UMOCKDEV_FOUND)
  set(usb_skip "umockdev-1.0 development files not found (install libumockdev-dev)")
elseif(NOT UMOCKDEV_WRAPPER)
  set(usb_skip "umockdev-wrapper not found (install umockdev)")
endif()

if(UMOCKDEV_FOUND)
  list(APPEND usb_sources ${CMAKE_CURRENT_SOURCE_DIR}/usbmock.cpp)
  list(APPEND usb_libs PkgConfig::UMOCKDEV)
endif()
if(usb_skip STREQUAL "")
  set(usb_wrapper WRAPPER ${UMOCKDEV_WRAPPER})
else()
  message(STATUS "comms_commsusb_utest: device tests will skip: ${usb_skip}")
endif()

tavro_add_gtest(comms_commsusb_utest SOURCES ${usb_sources} LIBS ${usb_libs} ${usb_wrapper}
                TIMEOUT 60 LABELS usb)
target_compile_definitions(comms_commsusb_utest PRIVATE
  TAVRO_HAVE_UMOCKDEV=$<BOOL:${UMOCKDEV_FOUND}> "TAVRO_USB_SKIP=\"${usb_skip}\"")
if(NOT usb_skip STREQUAL "")
  set_tests_properties(comms_commsusb_utest PROPERTIES SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
endif()
