# What every target of this project is compiled with. PRIVATE throughout: nothing of it reaches a consumer.
function(kel_compile_settings target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  # Files beyond 2 GiB and dates beyond 2038, on 32-bit targets too.
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  if(KEL_WARNINGS)
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Woverloaded-virtual
      $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
      $<$<BOOL:${KEL_WARNINGS_AS_ERRORS}>:-Werror>)
  endif()
endfunction()

# kel_add_library(<name> SOURCES ... HEADERS ... [LINK ...] [PRIVATE_LINK ...])
#
# Makes kel_<name> (shared, also known as kel::<name>) out of the object library kel_<name>_objects. The tests link
# the objects, so that they reach what the shared library hides.
function(kel_add_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;HEADERS;LINK;PRIVATE_LINK" ${ARGN})

  set(objects kel_${name}_objects)
  add_library(${objects} OBJECT ${arg_SOURCES} ${arg_HEADERS})
  kel_compile_settings(${objects})
  set_target_properties(${objects} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  # Calls inside a library go straight to its own functions: nobody puts others in their place.
  target_compile_options(${objects} PRIVATE -fno-semantic-interposition)
  target_include_directories(${objects} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${objects} PRIVATE ${arg_PRIVATE_LINK})

  add_library(kel_${name} SHARED)
  add_library(kel::${name} ALIAS kel_${name})
  kel_compile_settings(kel_${name})
  target_sources(kel_${name} PRIVATE $<TARGET_OBJECTS:${objects}>)
  set_target_properties(kel_${name} PROPERTIES
    LINKER_LANGUAGE CXX
    EXPORT_NAME ${name}
    INSTALL_RPATH $ORIGIN # the three find each other wherever they are installed
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  target_include_directories(kel_${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kel>)
  target_link_libraries(kel_${name} PRIVATE ${arg_PRIVATE_LINK})
  set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  set_property(TARGET kel_${name} APPEND PROPERTY LINK_DEPENDS ${exports})
  target_link_options(kel_${name} PRIVATE
    -Wl,--no-undefined-version -Wl,--as-needed -Wl,-Bsymbolic-functions -Wl,--version-script=${exports})

  if(KEL_INSTALL)
    install(TARGETS kel_${name} EXPORT kel_datastorageTargets
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
    install(FILES ${arg_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kel/${name} COMPONENT development)
  endif()

  foreach(dependency IN LISTS arg_LINK)
    target_link_libraries(${objects} PUBLIC kel_${dependency}_objects)
    target_link_libraries(kel_${name} PUBLIC kel::${dependency})
  endforeach()
endfunction()
