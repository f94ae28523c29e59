# Fuzzing with libFuzzer. With Debian's clang and its libFuzzer runtime at hand, the code under
# test is compiled a second time with clang (the project's own compiler is untouched) into
# fuzzers, each run for a bounded time as a test. In the sanitizer builds, whose tests run the
# random-input stand-ins under their own sanitizer, and where clang is missing, there are none.
# MURMELA_LIBFUZZER says which.
find_program(MURMELA_CLANGXX NAMES clang++ clang++-14)
set(MURMELA_LIBFUZZER OFF)
if(MURMELA_CLANGXX AND MURMELA_SANITIZE STREQUAL "")
    set(probe ${CMAKE_BINARY_DIR}/libfuzzer_probe.cpp)
    file(WRITE ${probe} "#include <cstddef>\nextern \"C\" int LLVMFuzzerTestOneInput(const unsigned char*, std::size_t) { return 0; }\n")
    execute_process(
        COMMAND ${MURMELA_CLANGXX} -fsanitize=fuzzer ${probe} -o ${CMAKE_BINARY_DIR}/libfuzzer_probe
        RESULT_VARIABLE probe_result OUTPUT_QUIET ERROR_QUIET)
    if(probe_result EQUAL 0)
        set(MURMELA_LIBFUZZER ON)
        message(STATUS "Fuzzing with libFuzzer: ${MURMELA_CLANGXX}")
    endif()
endif()

# Every fuzzer's objects are compiled alike, so one object serves all the fuzzers that use it.
# Qt's and ONNX Runtime's headers are on the path for the sources that include them; only what
# a fuzzer's objects use is linked.
get_target_property(onnxruntime_includes onnxruntime::onnxruntime INTERFACE_INCLUDE_DIRECTORIES)
get_target_property(qt_includes Qt6::Core INTERFACE_INCLUDE_DIRECTORIES)
set(murmela_fuzz_includes ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests
    ${MURMELA_GENERATED_INCLUDE} ${onnxruntime_includes} ${qt_includes})
list(TRANSFORM murmela_fuzz_includes PREPEND -I)
set(murmela_fuzz_flags
    -std=c++20 -O1 -g -fPIC -fsanitize=fuzzer-no-link,address,undefined
    -fno-sanitize-recover=undefined -DMURMELA_LIBFUZZER
    ${murmela_fuzz_includes}
    -DMURMELA_TEST_VOICE_DIR="${MURMELA_TEST_VOICE}")
set(murmela_fuzz_libraries -Wl,--as-needed
    ${ESPEAK_NG_LINK_LIBRARIES} ${ICU_UC_LIBRARIES} ${SYSTEMD_LINK_LIBRARIES}
    ${FFTW3F_LINK_LIBRARIES} ${SOXR_LINK_LIBRARIES} ${ZLIB_LIBRARIES}
    $<TARGET_FILE:onnxruntime::onnxruntime> $<TARGET_FILE:Qt6::Core>
    -Wl,-rpath,$<TARGET_FILE_DIR:onnxruntime::onnxruntime>)

# murmela_fuzzer(<name> [LIBRARIES ...] [SOURCES ...]): bin/<name>, a fuzzer made of the C++
# sources of the LIBRARIES (the project's library targets) and the SOURCES (the entry point
# among them).
function(murmela_fuzzer name)
    cmake_parse_arguments(ARG "" "" "LIBRARIES;SOURCES" ${ARGN})
    set(sources ${ARG_SOURCES})
    list(TRANSFORM sources PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ REGEX "^[^/]")
    foreach(library ${ARG_LIBRARIES})
        get_target_property(library_sources ${library} SOURCES)
        list(APPEND sources ${library_sources})
    endforeach()
    list(FILTER sources INCLUDE REGEX "\\.cpp$")
    set(objects "")
    set(other_builders "")
    foreach(source ${sources})
        file(RELATIVE_PATH relative ${PROJECT_SOURCE_DIR} ${source})
        set(object ${CMAKE_BINARY_DIR}/fuzz_objects/${relative}.o)
        # The first fuzzer that needs an object builds it; the others wait for that fuzzer.
        get_property(builder GLOBAL PROPERTY murmela_fuzz_object_${relative})
        if(builder)
            list(APPEND other_builders ${builder})
        else()
            add_custom_command(
                OUTPUT ${object}
                COMMAND ${CMAKE_CXX_COMPILER_LAUNCHER} ${MURMELA_CLANGXX} ${murmela_fuzz_flags}
                        -MD -MF ${object}.d -c ${source} -o ${object}
                DEPENDS ${source}
                DEPFILE ${object}.d
                COMMENT "Compiling ${relative} for fuzzing"
                VERBATIM COMMAND_EXPAND_LISTS)
            set_property(GLOBAL PROPERTY murmela_fuzz_object_${relative} ${name})
        endif()
        list(APPEND objects ${object})
    endforeach()
    set(fuzzer ${CMAKE_BINARY_DIR}/bin/${name})
    add_custom_command(
        OUTPUT ${fuzzer}
        COMMAND ${MURMELA_CLANGXX} -fsanitize=fuzzer,address,undefined ${objects}
                ${murmela_fuzz_libraries} -o ${fuzzer}
        DEPENDS ${objects}
        COMMENT "Linking the fuzzer ${name}"
        VERBATIM COMMAND_EXPAND_LISTS)
    add_custom_target(${name} ALL DEPENDS ${fuzzer})
    add_dependencies(${name} murmela_test_voice)
    if(other_builders)
        list(REMOVE_DUPLICATES other_builders)
        list(REMOVE_ITEM other_builders ${name})
        add_dependencies(${name} ${other_builders})
    endif()
endfunction()

# murmela_fuzz_test(<test> FUZZER <name> SEEDS <directory> SECONDS <n> [ARGUMENTS ...]
#                   [ENVIRONMENT ...]): a run of the fuzzer for n seconds from the seeds. New
# inputs it finds are kept in the build tree, so later runs start from them; an input that
# breaks a promise is written beside them. Labelled core: only the build without sanitizers has
# fuzzers, so the sanitizer builds' selection of core tests never runs one.
function(murmela_fuzz_test test)
    cmake_parse_arguments(ARG "" "FUZZER;SEEDS;SECONDS" "ARGUMENTS;ENVIRONMENT" ${ARGN})
    set(corpus ${CMAKE_CURRENT_BINARY_DIR}/fuzz_corpus/${test})
    file(MAKE_DIRECTORY ${corpus})
    add_test(NAME ${test}
        COMMAND ${CMAKE_BINARY_DIR}/bin/${ARG_FUZZER} -max_total_time=${ARG_SECONDS} -timeout=20
                -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix=${CMAKE_CURRENT_BINARY_DIR}/
                ${ARG_ARGUMENTS} ${corpus} ${ARG_SEEDS})
    set_tests_properties(${test} PROPERTIES
        LABELS core TIMEOUT 120 ENVIRONMENT "${ARG_ENVIRONMENT}")
endfunction()

# murmela_fuzz_target(<name> ENTRY <file> SEEDS <directory> FUZZ_LIBRARIES ... [FUZZ_SOURCES ...]
#                     LIBRARIES ... [LABELS ...] [ARGUMENTS ...] [ENVIRONMENT ...])
# A fuzz target whose ENTRY declares it with MURMELA_FUZZ_ENTRY (tests/support/fuzzing.h).
# With libFuzzer: the fuzzer <name>_fuzzer, made of the ENTRY, the FUZZ_SOURCES and the
# FUZZ_LIBRARIES' sources, run for 30 s from the SEEDS as the test <name>_fuzz (see
# murmela_fuzz_test). Without: the test <name>_random_input (see murmela_test), the ENTRY built
# as usual and linked with the LIBRARIES, given the LABELS.
function(murmela_fuzz_target name)
    cmake_parse_arguments(ARG "" "ENTRY;SEEDS"
        "FUZZ_LIBRARIES;FUZZ_SOURCES;LIBRARIES;LABELS;ARGUMENTS;ENVIRONMENT" ${ARGN})
    if(MURMELA_LIBFUZZER)
        murmela_fuzzer(${name}_fuzzer LIBRARIES ${ARG_FUZZ_LIBRARIES}
            SOURCES ${ARG_FUZZ_SOURCES} ${ARG_ENTRY})
        murmela_fuzz_test(${name}_fuzz FUZZER ${name}_fuzzer SECONDS 30 SEEDS ${ARG_SEEDS}
            ARGUMENTS ${ARG_ARGUMENTS} ENVIRONMENT ${ARG_ENVIRONMENT})
    else()
        murmela_test(${name}_random_input SOURCES ${ARG_ENTRY} LIBRARIES ${ARG_LIBRARIES}
            LABELS ${ARG_LABELS})
        target_compile_definitions(${name}_random_input PRIVATE
            MURMELA_FUZZ_SEEDS="${ARG_SEEDS}" MURMELA_TEST_VOICE_DIR="${MURMELA_TEST_VOICE}")
    endif()
endfunction()
