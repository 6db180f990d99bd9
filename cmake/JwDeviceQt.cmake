# Which Qt the project is built with. Files of Qt 6 have other names, so both builds can be installed side by side.
set(JWDEVICE_QT 5 CACHE STRING "Version of Qt: 5 or 6")
set_property(CACHE JWDEVICE_QT PROPERTY STRINGS 5 6)
if(JWDEVICE_QT STREQUAL "5")
    set(jwdevice_qt_version 5.15)
    set(jwdevice_package JwDevice)
    set(jwdevice_qt_suffix)
    set(jwdevice_module_suffix)
elseif(JWDEVICE_QT STREQUAL "6")
    set(jwdevice_qt_version 6.2)
    set(jwdevice_package JwDeviceQt6)
    set(jwdevice_qt_suffix Qt6) # of the libraries' files
    set(jwdevice_module_suffix -qt6) # of pkg-config's modules and of the folder of the headers
else()
    message(FATAL_ERROR "JWDEVICE_QT is \"${JWDEVICE_QT}\"; set it to 5 or 6.")
endif()
