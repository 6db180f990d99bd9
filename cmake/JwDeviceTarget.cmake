if(JWDEVICE_BUILD_SHARED)
    set(jwdevice_library_type SHARED)
else()
    set(jwdevice_library_type STATIC)
endif()

# jwdevice_target(<target> [WITH_TYPES])
# Sets the properties that all targets of this project share. With RelWithDebInfo, the debug information is enough for
# backtraces with line numbers, because more makes compiling a fifth slower. WITH_TYPES adds the rest, which scripts/abi
# needs to compare types.
#
# Only the libraries use the warning -Wnon-virtual-dtor. Applications may use this warning, and the headers of the
# libraries must not cause it there. Tests, tools and other targets don't use it, because it reports every class that is
# derived from a record or from ParserAbstract. These classes have virtual functions, but no virtual destructor, because
# nobody deletes an object through a pointer to a base class. If code does this, -Wdelete-non-virtual-dtor (a part of
# -Wall) reports it.
function(jwdevice_target target)
    set_target_properties(${target} PROPERTIES
        AUTOMOC ON
        CXX_STANDARD 17
        CXX_STANDARD_REQUIRED ON
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_compile_features(${target} PUBLIC cxx_std_17)
    target_compile_definitions(${target} PRIVATE
        QT_NO_KEYWORDS
        QT_NO_CAST_FROM_ASCII
        QT_NO_CAST_TO_ASCII
        QT_NO_URL_CAST_FROM_STRING
        QT_NO_FOREACH
        QT_DEPRECATED_WARNINGS)
    if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wconversion
            -UJWLOGGER_NO_ALIAS) # our code needs the alias, even if an application defines this macro everywhere
        if(JWDEVICE_WERROR)
            target_compile_options(${target} PRIVATE -Werror)
        endif()
        if(jwdevice_whole_project AND NOT "WITH_TYPES" IN_LIST ARGN)
            target_compile_options(${target} PRIVATE $<$<CONFIG:RelWithDebInfo>:-g1>)
        endif()
    endif()
    if(JWDEVICE_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${JWDEVICE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${JWDEVICE_SANITIZE})
    endif()
endfunction()

# jwdevice_library(<target> <name> <export header>)
# Sets the properties that all libraries share. The file is lib<name>, or lib<name>Qt6 in a build for Qt 6; users of an
# install tree link JwDevice::<name>.
# The export header is <folder>/<prefix>_export.h and defines the macro <PREFIX>_EXPORT and others. Choose a prefix that
# no application uses.
function(jwdevice_library target name export_header)
    jwdevice_target(${target} WITH_TYPES)
    if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE -Wnon-virtual-dtor)
    endif()
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME ${name}${jwdevice_file_suffix}
        EXPORT_NAME ${name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${jwdevice_soversion}
        POSITION_INDEPENDENT_CODE ON
        INSTALL_RPATH "$ORIGIN")
    string(REGEX REPLACE "^.*/(.*)_export\\.h$" "\\1" macros ${export_header})
    string(TOUPPER ${macros} macros)
    generate_export_header(${target}
        BASE_NAME ${macros} EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/generated/${export_header})
    target_sources(${target} PRIVATE ${PROJECT_BINARY_DIR}/generated/${export_header})
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
        $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/generated>)
    if(JWDEVICE_BUILD_SHARED AND UNIX AND NOT APPLE)
        target_link_options(${target} PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map")
        set_target_properties(${target} PROPERTIES LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
        # With -Bsymbolic-functions the library calls its own functions, even if an application has functions of the
        # same name. Applications must then be compiled with -fPIC, because otherwise a signal has two addresses and
        # connect() does not find it. If Qt itself was linked with -Bsymbolic-functions, it requires -fPIC of all
        # applications. So the library uses -Bsymbolic-functions only if Qt requires -fPIC.
        get_target_property(qt_options Qt${JWDEVICE_QT}::Core INTERFACE_COMPILE_OPTIONS)
        if("-fPIC" IN_LIST qt_options)
            target_link_options(${target} PRIVATE LINKER:-Bsymbolic-functions)
        endif()
    endif()
    if(NOT JWDEVICE_BUILD_SHARED)
        target_compile_definitions(${target} PUBLIC ${macros}_STATIC_DEFINE)
    endif()
endfunction()
