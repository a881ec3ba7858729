# The target "docs": the pages of the installed headers and of the Markdown files. An operation that a caller can reach
# and that has no comment fails the build, and so does a dead link.
find_package(Doxygen)
if(NOT DOXYGEN_FOUND)
  return()
endif()

set(pages
  docs/groups.dox
  README.md
  CHANGELOG.md
  docs/abi.md
  docs/benchmarks.md
  CONTRIBUTING.md
  SECURITY.md
  docs/dictionary.md
  docs/keldict.md
  docs/kernel.md
  docs/reliability.md)

set(headers)
foreach(library IN ITEMS kernel database datastorage)
  get_target_property(sources kel_${library}_objects SOURCES)
  list(FILTER sources INCLUDE REGEX "\\.h$")
  list(TRANSFORM sources PREPEND ${library}/)
  list(APPEND headers ${sources})
endforeach()
list(REMOVE_ITEM headers kernel/kelglobal.h) # macros of our own

set(linked_files # what the pages link to, beside each other
  cmake/toolchains/armhf.cmake
  examples/docs/dictionary.json)

set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
set(DOXYGEN_LAYOUT_FILE ${CMAKE_CURRENT_LIST_DIR}/doxygen_layout.xml)
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE README.md)
set(DOXYGEN_IMAGE_PATH docs/images)
set(DOXYGEN_EXAMPLE_PATH examples/docs)
set(DOXYGEN_HTML_EXTRA_FILES docs/dictionary.schema.json)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR})
set(DOXYGEN_STRIP_FROM_INC_PATH ${PROJECT_SOURCE_DIR}) # what a caller writes behind #include
set(DOXYGEN_FULL_PATH_NAMES YES)
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_EXTRACT_ALL NO)
set(DOXYGEN_FILTER_PATTERNS "*.h=sed -f cmake/doxygen_public.sed")
set(DOXYGEN_VERBATIM_HEADERS NO) # they show private members
set(DOXYGEN_SHOW_FILES NO)
set(DOXYGEN_STRIP_CODE_COMMENTS NO) # the code of the pages is shown as it is
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_GENERATE_XML YES) # for the checks
set(DOXYGEN_XML_PROGRAMLISTING NO)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)
set(DOXYGEN_TOC_INCLUDE_HEADINGS 3)
set(DOXYGEN_HAVE_DOT NO)
set(DOXYGEN_HTML_TIMESTAMP NO)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_PREDEFINED __GNUC__ KEL_EXPORT= KEL_SCOPED_CAPABILITY= KEL_NO_LOCK_ANALYSIS= "KEL_CAPABILITY(x)="
    "KEL_GUARDED_BY(x)=" "KEL_ACQUIRE(x)=" "KEL_RELEASE(x)=" "KEL_TRY_ACQUIRE(x)=" "KEL_REQUIRES(x)=")

doxygen_add_docs(docs ${headers} ${pages} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
# Doxygen removes no page of a class that is gone.
add_custom_target(docs_removal COMMAND ${CMAKE_COMMAND} -E rm -rf ${DOXYGEN_OUTPUT_DIRECTORY} VERBATIM)
add_dependencies(docs docs_removal)
foreach(file IN LISTS linked_files)
  add_custom_command(TARGET docs POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/${file} ${DOXYGEN_OUTPUT_DIRECTORY}/html/${file}
    VERBATIM)
endforeach()
add_custom_command(TARGET docs POST_BUILD
  COMMAND ${CMAKE_COMMAND} -D XML=${DOXYGEN_OUTPUT_DIRECTORY}/xml
          -P ${CMAKE_CURRENT_LIST_DIR}/check_documented_values.cmake
  COMMAND bash ${PROJECT_SOURCE_DIR}/tests/docs/reference_test.sh ${DOXYGEN_OUTPUT_DIRECTORY}
  VERBATIM)
