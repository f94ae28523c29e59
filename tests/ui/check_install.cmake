cmake_minimum_required(VERSION 3.25)
# Installs the build into PREFIX and checks that the desktop finds the program there.
#   cmake -DBUILD=<build dir> -DPREFIX=<dir> -DAPP_ID=<id> -DVOICE=<ON|OFF> -P check_install.cmake
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX}
    OUTPUT_QUIET RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "cmake --install failed")
endif()

set(expected
    bin/murmela
    libexec/murmela/murmela
    share/applications/${APP_ID}.desktop
    share/metainfo/${APP_ID}.metainfo.xml
    share/icons/hicolor/scalable/apps/${APP_ID}.svg
    share/murmela/murmela-copy.json
    share/murmela/murmela-tokens.json
    share/murmela/Licenses/Kokoro-82M.txt)
if(VOICE)
    list(APPEND expected share/murmela/Voice/voice.json share/murmela/voices/murmela-slt/voice.json
        share/murmela/Licenses/flite-cmu_us_rms.txt)
endif()
foreach(path IN LISTS expected)
    if(NOT EXISTS ${PREFIX}/${path})
        message(FATAL_ERROR "not installed: ${path}")
    endif()
endforeach()

file(READ ${PREFIX}/share/applications/${APP_ID}.desktop entry)
foreach(line "Exec=murmela" "Icon=${APP_ID}" "Type=Application")
    string(FIND "${entry}" "\n${line}\n" found)
    if(found EQUAL -1)
        message(FATAL_ERROR "the desktop entry lacks ${line}")
    endif()
endforeach()

# The entry and the metadata must be what the desktop's own tools accept, where installed.
find_program(DESKTOP_FILE_VALIDATE desktop-file-validate)
if(DESKTOP_FILE_VALIDATE)
    execute_process(COMMAND ${DESKTOP_FILE_VALIDATE} ${PREFIX}/share/applications/${APP_ID}.desktop
        OUTPUT_VARIABLE report ERROR_VARIABLE report RESULT_VARIABLE status)
    if(NOT status EQUAL 0 OR NOT report STREQUAL "")
        message(FATAL_ERROR "desktop-file-validate rejects the entry:\n${report}")
    endif()
endif()
find_program(APPSTREAMCLI appstreamcli)
if(APPSTREAMCLI)
    execute_process(
        COMMAND ${APPSTREAMCLI} validate --no-net --explain
                ${PREFIX}/share/metainfo/${APP_ID}.metainfo.xml
        OUTPUT_VARIABLE report ERROR_VARIABLE report RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "appstreamcli rejects the metadata:\n${report}")
    endif()
endif()
file(REMOVE_RECURSE ${PREFIX})
