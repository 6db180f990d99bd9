# jwdevice_target(<target>): what every target of this project has in common.
#
# -Wnon-virtual-dtor is left out on purpose: the session records and the codec template have virtual functions and no
# virtual destructor by design (they live on the stack and are never deleted through a base); -Wdelete-non-virtual-dtor,
# which is part of -Wall, catches a real misuse.
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
        target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
        if(JWDEVICE_WERROR)
            target_compile_options(${target} PRIVATE -Werror)
        endif()
    endif()
    if(JWDEVICE_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${JWDEVICE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${JWDEVICE_SANITIZE})
    endif()
endfunction()
