# Dfu against an emulated DfuSe boot loader: the real libusb runs under
# umockdev-wrapper with the USB device emulation of tests/comms. Without
# umockdev the test builds and skips itself with the reason.
pkg_check_modules(UMOCKDEV IMPORTED_TARGET umockdev-1.0)
find_program(UMOCKDEV_WRAPPER umockdev-wrapper)

set(dfu_sources ${CMAKE_CURRENT_SOURCE_DIR}/dfu_utest.cpp)
set(dfu_libs tavro_firmware)
set(dfu_wrapper)
set(dfu_skip "")
if(NOT UMOCKDEV_FOUND)
  set(dfu_skip "umockdev-1.0 development files not found (install libumockdev-dev)")
elseif(NOT UMOCKDEV_WRAPPER)
  set(dfu_skip "umockdev-wrapper not found (install umockdev)")
endif()
if(UMOCKDEV_FOUND)
  list(APPEND dfu_sources ${PROJECT_SOURCE_DIR}/tests/comms/usbmock.cpp)
  list(APPEND dfu_libs PkgConfig::UMOCKDEV)
endif()
if(dfu_skip STREQUAL "")
  set(dfu_wrapper WRAPPER ${UMOCKDEV_WRAPPER})
else()
  message(STATUS "firmware_dfu_utest: device tests will skip: ${dfu_skip}")
endif()

tavro_add_gtest(firmware_dfu_utest SOURCES ${dfu_sources} LIBS ${dfu_libs} ${dfu_wrapper}
                TIMEOUT 60 LABELS usb)
target_compile_definitions(firmware_dfu_utest PRIVATE
  TAVRO_HAVE_UMOCKDEV=$<BOOL:${UMOCKDEV_FOUND}> "TAVRO_USB_SKIP=\"${dfu_skip}\"")
if(NOT dfu_skip STREQUAL "")
  set_tests_properties(firmware_dfu_utest PROPERTIES SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
endif()
