# wirefox_library(NAME [SOURCES file...] [DEPENDS target...]): one static library per folder. Without
# SOURCES it takes every .cpp of its folder.
function(wirefox_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
  if(NOT arg_SOURCES)
    file(GLOB arg_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  endif()
  if(NOT arg_SOURCES)
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${arg_DEPENDS})
    return()
  endif()
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ${arg_DEPENDS} PRIVATE wirefox_warnings)
endfunction()

# wirefox_fill_locals(NAME): in builds with a sanitizer, locals that nobody has set hold a pattern and not
# what the stack happens to hold, which is often the zeros that one forgot to set.
function(wirefox_fill_locals name)
  if(WIREFOX_SANITIZE)
    target_compile_options(${name} PRIVATE -ftrivial-auto-var-init=pattern)
  endif()
endfunction()

# wirefox_program(NAME SOURCES file... [DEPENDS target...]): a program that lands in bin/.
function(wirefox_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_DEPENDS} wirefox_warnings)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
endfunction()

# wirefox_test(NAME [ONE_AT_A_TIME] [FOLDER dir] [DEPENDS target...] [LABELS label...] [ENVIRONMENT name=value]): every
# .cpp of FOLDER as one GoogleTest program, each case a test of its own for ctest, with the variable
# set for it on Linux.
function(wirefox_test name)
  cmake_parse_arguments(arg "ONE_AT_A_TIME" "FOLDER;ENVIRONMENT" "DEPENDS;LABELS;SOURCES"
    ${ARGN})
  if(NOT arg_FOLDER)
    set(arg_FOLDER ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  if(NOT arg_SOURCES)
    file(GLOB arg_SOURCES CONFIGURE_DEPENDS ${arg_FOLDER}/*.cpp)
  endif()
  if(NOT arg_SOURCES)
    return()
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_DEPENDS} GTest::gtest_main GTest::gmock wirefox_warnings)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/test_programs)
  if(WIN32)
    # One process for the whole program: starting one per case costs more than the cases under Wine.
    add_test(NAME ${WIREFOX_TEST_PREFIX}${name} COMMAND ${name})
    set_tests_properties(${WIREFOX_TEST_PREFIX}${name} PROPERTIES LABELS "${arg_LABELS}" TIMEOUT 300)
  else()
    set(properties LABELS "${arg_LABELS}" TIMEOUT 120)
    if(arg_ENVIRONMENT)
      list(APPEND properties ENVIRONMENT "${arg_ENVIRONMENT}")
    endif()
    if(arg_ONE_AT_A_TIME)
      list(APPEND properties RESOURCE_LOCK "${WIREFOX_TEST_PREFIX}${name}")
    endif()
    gtest_discover_tests(${name} TEST_PREFIX "${WIREFOX_TEST_PREFIX}" DISCOVERY_TIMEOUT 60
      DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
  endif()
endfunction()
