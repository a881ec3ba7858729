# A stranger's project on this build of the library, brought in by every road that leads to it.

# Sanitizers and coverage want their run-time in the program too, which a stranger's has not.
if(NOT KEL_INSTALL OR CMAKE_CXX_FLAGS MATCHES "-fsanitize|--coverage")
  return()
endif()

set(prefix ${CMAKE_CURRENT_BINARY_DIR}/prefix)

# kel_add_consumer_test(<name> <argument of test.sh>...)
function(kel_add_consumer_test name)
  add_test(NAME consumer.${name} COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/consumer/test.sh ${ARGN})
  set_tests_properties(consumer.${name} PROPERTIES TIMEOUT 600 ENVIRONMENT CXX=${CMAKE_CXX_COMPILER})
endfunction()

kel_add_consumer_test(install install ${PROJECT_BINARY_DIR} ${prefix})
set_tests_properties(consumer.install PROPERTIES FIXTURES_SETUP installed)

if(CMAKE_CROSSCOMPILING)
  # The stranger has the same toolchain. What the libraries need in their turn lies outside its default folders.
  get_filename_component(libraries ${SQLite3_LIBRARY} DIRECTORY)
  set(toolchain -DCMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE} -DCMAKE_EXE_LINKER_FLAGS=-Wl,-rpath-link,${libraries})
  foreach(variable IN LISTS CMAKE_TRY_COMPILE_PLATFORM_VARIABLES)
    list(APPEND toolchain -D${variable}=${${variable}})
  endforeach()
  kel_add_consumer_test(package package ${prefix} ${toolchain})
  set_tests_properties(consumer.package PROPERTIES FIXTURES_REQUIRED installed)
  return()
endif()

kel_add_consumer_test(package package ${prefix})
kel_add_consumer_test(json json ${prefix} ${KEL_RAPIDJSON_INCLUDE_DIR})
kel_add_consumer_test(pkg-config pkg-config ${prefix})
kel_add_consumer_test(headers headers ${prefix})
set_tests_properties(consumer.package consumer.json consumer.pkg-config consumer.headers
  PROPERTIES FIXTURES_REQUIRED installed)

kel_add_consumer_test(add_subdirectory embedded add_subdirectory ${PROJECT_SOURCE_DIR})
kel_add_consumer_test(FetchContent embedded FetchContent ${PROJECT_SOURCE_DIR})
