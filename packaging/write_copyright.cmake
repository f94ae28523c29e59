# Writes the package's copyright file: HEADER, then each file of PARTS under its name.
#   cmake -DOUT=<file> -DHEADER=<file> -DPARTS=<file;...> -P write_copyright.cmake
cmake_minimum_required(VERSION 3.25)
file(READ ${HEADER} content)
foreach(part IN LISTS PARTS)
    get_filename_component(name ${part} NAME_WE)
    file(READ ${part} text)
    string(APPEND content "\n\n==== ${name} ====\n\n${text}")
endforeach()
file(WRITE ${OUT} "${content}")
