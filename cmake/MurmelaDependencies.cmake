# Third-party libraries, all from the system except ONNX Runtime (see scripts/fetch-onnxruntime).
find_package(PkgConfig REQUIRED)
pkg_check_modules(ESPEAK_NG REQUIRED IMPORTED_TARGET espeak-ng)
pkg_check_modules(FFTW3F REQUIRED IMPORTED_TARGET fftw3f)
pkg_check_modules(SOXR REQUIRED IMPORTED_TARGET soxr)
find_package(ZLIB REQUIRED)
pkg_check_modules(SYSTEMD IMPORTED_TARGET libsystemd)
find_package(ICU REQUIRED COMPONENTS uc)
find_package(nlohmann_json 3 REQUIRED CONFIG)
find_package(Threads REQUIRED)

# A distribution that packages ONNX Runtime is used as it is; otherwise the project cache.
# Libraries only the program uses go to this directory of the installation prefix.
set(MURMELA_PRIVATE_LIBDIR lib/murmela)
find_package(onnxruntime CONFIG QUIET)
if(TARGET onnxruntime::onnxruntime)
    message(STATUS "ONNX Runtime: system package")
    set(MURMELA_ONNXRUNTIME_LIBRARY "")
else()
    set(MURMELA_ONNXRUNTIME_ROOT "" CACHE PATH "Directory with include/ and lib/libonnxruntime.so.1")
    find_path(MURMELA_ONNXRUNTIME_INCLUDE onnxruntime_cxx_api.h
        HINTS ${MURMELA_ONNXRUNTIME_ROOT}/include NO_DEFAULT_PATH)
    find_file(MURMELA_ONNXRUNTIME_LIBRARY libonnxruntime.so.1
        HINTS ${MURMELA_ONNXRUNTIME_ROOT}/lib NO_DEFAULT_PATH)
    if(NOT MURMELA_ONNXRUNTIME_INCLUDE OR NOT MURMELA_ONNXRUNTIME_LIBRARY)
        message(FATAL_ERROR "ONNX Runtime not found: run scripts/fetch-onnxruntime and pass "
                            "-DMURMELA_ONNXRUNTIME_ROOT=<the directory it prints>")
    endif()
    message(STATUS "ONNX Runtime: ${MURMELA_ONNXRUNTIME_LIBRARY}")
    add_library(onnxruntime::onnxruntime SHARED IMPORTED GLOBAL)
    set_target_properties(onnxruntime::onnxruntime PROPERTIES
        IMPORTED_LOCATION ${MURMELA_ONNXRUNTIME_LIBRARY}
        IMPORTED_SONAME libonnxruntime.so.1
        INTERFACE_INCLUDE_DIRECTORIES ${MURMELA_ONNXRUNTIME_INCLUDE})
    # The runtime is installed privately beside the program, outside the system's library
    # path, and found through its RUNPATH; the build tree finds it in the cache.
    get_filename_component(onnxruntime_library_dir ${MURMELA_ONNXRUNTIME_LIBRARY} DIRECTORY)
    set(CMAKE_BUILD_RPATH ${onnxruntime_library_dir})
    set(CMAKE_INSTALL_RPATH "$ORIGIN/../${MURMELA_PRIVATE_LIBDIR}")
    install(FILES ${MURMELA_ONNXRUNTIME_LIBRARY} DESTINATION ${MURMELA_PRIVATE_LIBDIR})
endif()

find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets Svg Multimedia DBus Test)
if(MURMELA_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
if(MURMELA_BUILD_BENCHMARKS)
    find_package(benchmark REQUIRED)
endif()

