# Functions that declare the shared libraries and the test programs.

# quorl_library(name [FOR_TESTS] SOURCES ... LINK ... MAP file): a shared library whose exports are those of its version script.
# One for tests stays in its folder, and is not installed.
# SONAMEs are the plain names, since other programs are bound to them; RUNPATH lets LD_LIBRARY_PATH win.
function(quorl_library name)
  cmake_parse_arguments(arg "FOR_TESTS" "MAP" "SOURCES;LINK" ${ARGN})
  add_library(${name} SHARED ${arg_SOURCES})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
  target_link_libraries(${name} ${arg_LINK})
  # The sanitizers' run-time libraries are resolved by the program, so undefined symbols are an error only without them.
  target_link_options(${name} PRIVATE -Wl,--version-script=${arg_MAP} -Wl,--enable-new-dtags -Wl,-z,relro,-z,now)
  if(NOT QUORL_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,-z,defs)
  endif()
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${arg_MAP} BUILD_RPATH "$ORIGIN" INSTALL_RPATH "$ORIGIN")
  if(arg_FOR_TESTS)
    set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  else()
    install(TARGETS ${name} DESTINATION ${CMAKE_INSTALL_LIBDIR})
  endif()
endfunction()

# quorl_gtest(name LABEL label SOURCES ... LINK ... [TIMEOUT seconds]): a GoogleTest program, run whole as one ctest test;
# its report, which scripts/test counts, goes to reports/.
function(quorl_gtest name)
  cmake_parse_arguments(arg "" "LABEL;TIMEOUT" "SOURCES;LINK" ${ARGN})
  if(NOT arg_SOURCES)
    return()
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  add_executable(${name} ${arg_SOURCES})
  # Test code is compiled once and run once: most of its time is the compiler's.
  target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O1> $<$<CONFIG:Debug>:-O0> -g1)
  # What scripts/test does not run with a sanitizer is not built with it either.
  if((QUORL_SANITIZE AND arg_LABEL MATCHES "^(sim|storage)$") OR
     (QUORL_SANITIZE STREQUAL "thread" AND arg_LABEL MATCHES "^(system|contract)$"))
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest GTest::gtest_main Threads::Threads)
  add_test(NAME ${name} COMMAND ${name} --gtest_output=xml:${CMAKE_BINARY_DIR}/reports/${name}.xml --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT})
endfunction()
