# cmake -D XML=<folder of Doxygen's XML> -P: fails for an enumerator without a comment, of which Doxygen does not warn.
file(GLOB pages ${XML}/*.xml)
set(bare)
foreach(page IN LISTS pages)
  file(READ ${page} text)
  string(REGEX MATCHALL
    "<enumvalue[^>]*prot=\"(public|protected)\"[^>]*>[ \n]*<name>[^<]*</name>[ \n]*(<initializer>[^<]*</initializer>[ \n]*)?<briefdescription>[ \n]*</briefdescription>"
    values "${text}")
  foreach(value IN LISTS values)
    string(REGEX REPLACE ".*<name>([^<]*)</name>.*" "\\1" name "${value}")
    get_filename_component(place ${page} NAME_WE)
    list(APPEND bare "${place}: enumerator ${name}")
  endforeach()
endforeach()
if(bare)
  list(JOIN bare "\n" bare)
  message(FATAL_ERROR "Not documented:\n${bare}")
endif()
