# CommsUsb against emulated USB devices. Under ThreadSanitizer the harness
# carries its own suppressions for the uninstrumented system libraries (see
# usbmock.cpp).
tavro_add_usb_gtest(comms_commsusb_utest SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/commsusb_utest.cpp
                    LIBS tavro_comms)
