# One interface target that every target links: language level, warnings,
# strict Qt defines and, on request, the sanitizers.
add_library(vk_common INTERFACE)
target_compile_features(vk_common INTERFACE cxx_std_20)
target_compile_options(vk_common INTERFACE -Wall -Wextra -Wpedantic)
target_compile_definitions(vk_common INTERFACE
    QT_NO_CAST_TO_ASCII
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_DISABLE_DEPRECATED_BEFORE=0x060400
    VKSTATS_VERSION="${VKSTATS_VERSION_TEXT}")
if(VKSTATS_SANITIZE)
    target_compile_options(vk_common INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(vk_common INTERFACE -fsanitize=address,undefined)
endif()
if(VKSTATS_WERROR)
    target_compile_options(vk_common INTERFACE -Werror)
endif()
