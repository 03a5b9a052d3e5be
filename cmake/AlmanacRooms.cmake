# Flags that every target of the project shares, and the helpers that make a room, a test, a benchmark and a
# fuzz target. A room is one folder under src/, built as an OBJECT library so that parsers which register
# themselves before main are never dropped by the linker.

add_library(almanac_flags INTERFACE)
target_compile_options(almanac_flags INTERFACE
  -Wall -Wextra -Wconversion -Werror -fno-omit-frame-pointer
  -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
target_include_directories(almanac_flags INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_link_libraries(almanac_flags INTERFACE Threads::Threads)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_definitions(almanac_flags INTERFACE _FORTIFY_SOURCE=2)
  target_compile_options(almanac_flags INTERFACE -fstack-protector-strong)
  target_link_options(almanac_flags INTERFACE -Wl,-z,relro,-z,now)
endif()
if(ALMANAC_SANITIZE)
  target_compile_options(almanac_flags INTERFACE -fsanitize=${ALMANAC_SANITIZE} -fno-sanitize-recover=all)
  target_link_options(almanac_flags INTERFACE -fsanitize=${ALMANAC_SANITIZE})
  if(ALMANAC_SANITIZE MATCHES "thread")
    # The thread sanitizer knows no fences, which g++ warns of; asio's are left out where that can be asked for.
    target_compile_definitions(almanac_flags INTERFACE BOOST_ASIO_DISABLE_FENCED_BLOCK)
    target_compile_options(almanac_flags INTERFACE -Wno-tsan)
  endif()
endif()
if(ALMANAC_FUZZ)
  target_compile_options(almanac_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# The two sides of the wall: every room of the core, every room of the host.
add_library(almanac_core INTERFACE)
add_library(almanac_host INTERFACE)
target_link_libraries(almanac_core INTERFACE almanac_flags ${CMAKE_DL_LIBS} resolv)
target_link_libraries(almanac_host INTERFACE almanac_flags)

# almanac_room(SIDE FOLDER [LIBRARIES...]): SIDE is core or host, FOLDER is relative to src/.
function(almanac_room SIDE FOLDER)
  string(REPLACE "/" "_" name ${FOLDER})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${FOLDER}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  if(NOT sources)
    return()
  endif()
  add_library(room_${name} OBJECT ${sources})
  target_link_libraries(room_${name} PRIVATE almanac_flags ${ARGN})
  target_sources(almanac_${SIDE} INTERFACE $<TARGET_OBJECTS:room_${name}>)
  if(ARGN)
    target_link_libraries(almanac_${SIDE} INTERFACE ${ARGN})
  endif()
endfunction()

# almanac_test(NAME FOLDER [LIBRARIES...]): every .cpp of tests/FOLDER becomes one test program.
function(almanac_test NAME FOLDER)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${FOLDER}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${NAME} ${sources})
  target_include_directories(test_${NAME} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_link_libraries(test_${NAME} PRIVATE almanac_core almanac_host GTest::gtest_main GTest::gmock ${ARGN})
  add_test(NAME ${NAME} COMMAND test_${NAME})
  set_tests_properties(${NAME} PROPERTIES TIMEOUT 300
    ENVIRONMENT "ALMANAC_SOURCE_DIR=${CMAKE_SOURCE_DIR};ALMANAC_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
endfunction()

# Every fuzz/<name>.cpp is one target, every bench/<name>.cpp one benchmark program.
function(almanac_fuzz NAME)
  add_executable(fuzz_${NAME} ${NAME}.cpp)
  target_link_libraries(fuzz_${NAME} PRIVATE almanac_core almanac_host)
  target_link_options(fuzz_${NAME} PRIVATE -fsanitize=fuzzer)
endfunction()

function(almanac_bench NAME)
  add_executable(bench_${NAME} ${NAME}.cpp)
  target_link_libraries(bench_${NAME} PRIVATE almanac_core almanac_host benchmark::benchmark_main)
endfunction()
