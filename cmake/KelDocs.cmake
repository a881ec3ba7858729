# The target "docs": the pages of the installed headers and of the Markdown files. An operation that a caller can reach
# and that has no comment fails the build.
find_package(Doxygen)
if(NOT DOXYGEN_FOUND)
  return()
endif()

set(pages
  README.md
  CHANGELOG.md
  docs/abi.md
  docs/benchmarks.md
  docs/contributing.md
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

set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE README.md)
set(DOXYGEN_IMAGE_PATH docs/images)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR})
set(DOXYGEN_STRIP_FROM_INC_PATH ${PROJECT_SOURCE_DIR}) # what a caller writes behind #include
set(DOXYGEN_FULL_PATH_NAMES YES)
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES) # one comment for the overloads between @{ and @}
set(DOXYGEN_EXTRACT_ALL NO)
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_GENERATE_XML YES) # for the check of enumerators
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
add_custom_command(TARGET docs POST_BUILD
  COMMAND ${CMAKE_COMMAND} -D XML=${PROJECT_BINARY_DIR}/docs/xml
          -P ${CMAKE_CURRENT_LIST_DIR}/check_documented_values.cmake
  VERBATIM)
