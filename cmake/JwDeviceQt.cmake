# The version of Qt that the project is built with. The builds for Qt 5 and Qt 6 can be installed side by side, because
# the names of libraries, of the folder of headers and of packages for Qt 6 contain "Qt6" or "qt6".
set(jwdevice_qt_default 5)
if(TARGET Qt6::Core AND NOT TARGET Qt5::Core) # the project that includes this one uses Qt 6
    set(jwdevice_qt_default 6)
endif()
set(JWDEVICE_QT ${jwdevice_qt_default} CACHE STRING "Version of Qt: 5 or 6")
set_property(CACHE JWDEVICE_QT PROPERTY STRINGS 5 6)

if(JWDEVICE_QT STREQUAL "5")
    set(jwdevice_qt_version 5.15) # the oldest version that works
    set(jwdevice_package JwDevice) # for find_package
    set(jwdevice_file_suffix) # of the names of library files
    set(jwdevice_module_suffix) # of the names of pkg-config modules, and of the folder of the headers
    set(jwdevice_installs_programs ON) # by default
    set(jwdevice_qt_packages "qtbase5-dev, libqt5serialport5-dev") # of Debian
    set(jwdevice_other_qt 6)
    set(jwdevice_other_package JwDeviceQt6)
elseif(JWDEVICE_QT STREQUAL "6")
    set(jwdevice_qt_version 6.2)
    set(jwdevice_package JwDeviceQt6)
    set(jwdevice_file_suffix Qt6)
    set(jwdevice_module_suffix -qt6)
    set(jwdevice_installs_programs OFF)
    set(jwdevice_qt_packages "qt6-base-dev, qt6-serialport-dev | libqt6serialport6-dev") # the second: in Ubuntu 22.04
    set(jwdevice_other_qt 5)
    set(jwdevice_other_package JwDevice)
else()
    message(FATAL_ERROR "JWDEVICE_QT is \"${JWDEVICE_QT}\"; set it to 5 or 6.")
endif()
