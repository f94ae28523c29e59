# Copies the copyright files of what the program ships into one folder.
#   cmake -DOUT=<folder> -DLIST=<file> -P stage_licenses.cmake
# Each line of <file> is <name>|<how>|<path>; <how> is "file" (copy <path> itself) or "package"
# (copy the Debian copyright file of the package that installed <path>).

cmake_minimum_required(VERSION 3.25)

if(NOT OUT OR NOT LIST)
    message(FATAL_ERROR "stage_licenses: OUT and LIST are required")
endif()
file(STRINGS ${LIST} ENTRIES)
file(MAKE_DIRECTORY ${OUT})

foreach(entry IN LISTS ENTRIES)
    string(REPLACE "|" ";" fields "${entry}")
    list(GET fields 0 name)
    list(GET fields 1 how)
    list(GET fields 2 path)
    if(how STREQUAL "file")
        set(source ${path})
    elseif(how STREQUAL "package")
        # The package owns the library itself, not the development symlink to it.
        file(REAL_PATH ${path} owned)
        execute_process(
            COMMAND dpkg-query -S ${owned}
            OUTPUT_VARIABLE owners
            RESULT_VARIABLE status
            ERROR_QUIET)
        if(NOT status EQUAL 0)
            message(FATAL_ERROR "Licenses: no installed package owns ${owned} (for ${name}); "
                                "install it from the distribution so its copyright file exists")
        endif()
        # "libfoo1:amd64, libfoo-extra: /usr/lib/..." -> libfoo1
        string(REGEX REPLACE "^([^:, ]+).*" "\\1" package "${owners}")
        set(source /usr/share/doc/${package}/copyright)
    else()
        message(FATAL_ERROR "stage_licenses: unknown kind '${how}' for ${name}")
    endif()
    if(NOT EXISTS ${source})
        message(FATAL_ERROR "Licenses: ${source} (for ${name}) does not exist")
    endif()
    file(COPY_FILE ${source} ${OUT}/${name} ONLY_IF_DIFFERENT)
endforeach()
