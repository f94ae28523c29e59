# Warnings and sanitizers applied to every target of the project.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)

if(MURMELA_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(MURMELA_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT MURMELA_SANITIZE STREQUAL "")
    message(FATAL_ERROR "MURMELA_SANITIZE must be empty, 'address' or 'thread'")
endif()
