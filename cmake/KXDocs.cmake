# The `docs` target: the HTML reference of the installed headers, generated with Doxygen into
# build/docs/html (not installed, not committed). It exists only when doxygen is found; a
# public name without a contract comment fails it.

find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  message(STATUS "doxygen not found: no 'docs' target (install doxygen)")
  return()
endif()

set(KX_DOCS_OUTPUT_DIR ${PROJECT_BINARY_DIR}/docs)
set(KX_DOCS_MAINPAGE ${PROJECT_SOURCE_DIR}/docs/reference.md)
set(KX_DOCS_SOURCES ${KX_DOCS_MAINPAGE})
foreach(header ${KX_PUBLIC_HEADERS})
  list(APPEND KX_DOCS_SOURCES ${PROJECT_SOURCE_DIR}/${header})
endforeach()
string(REPLACE ";" " " KX_DOCS_INPUT "${KX_DOCS_SOURCES}")
configure_file(docs/Doxyfile.in ${KX_DOCS_OUTPUT_DIR}/Doxyfile @ONLY)

# Always runs: doxygen is quick, and a failed run must not leave an index that looks current.
add_custom_target(docs
  COMMAND Doxygen::doxygen ${KX_DOCS_OUTPUT_DIR}/Doxyfile
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "Reference of the public headers: ${KX_DOCS_OUTPUT_DIR}/html/index.html"
  VERBATIM)
