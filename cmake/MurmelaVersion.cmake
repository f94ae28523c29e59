# The version is the project's; the build number is the commit count of the checkout.
set(MURMELA_VERSION ${PROJECT_VERSION})
set(MURMELA_BUILD_NUMBER "" CACHE STRING "Build number (default: number of commits)")
if(MURMELA_BUILD_NUMBER STREQUAL "")
    execute_process(
        COMMAND git rev-list --count HEAD
        WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
        OUTPUT_VARIABLE commit_count
        OUTPUT_STRIP_TRAILING_WHITESPACE
        ERROR_QUIET)
    if(commit_count STREQUAL "")
        set(commit_count 0)
    endif()
    set(MURMELA_BUILD_NUMBER_VALUE ${commit_count})
else()
    set(MURMELA_BUILD_NUMBER_VALUE ${MURMELA_BUILD_NUMBER})
endif()
