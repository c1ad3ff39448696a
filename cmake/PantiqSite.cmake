# The site of the documents: target site, in the folder site of the build; installed once it is there.
find_package(Python3 COMPONENTS Interpreter)
# Packages of the distribution belong to its own interpreter, which need not be the first one found.
foreach(python IN ITEMS ${Python3_EXECUTABLE} /usr/bin/python3)
  execute_process(COMMAND ${python} -c "import markdown" RESULT_VARIABLE missing OUTPUT_QUIET ERROR_QUIET)
  set(PANTIQ_SITE_PYTHON ${python})
  if(NOT missing)
    break()
  endif()
endforeach()
if(Python3_FOUND)
  add_custom_target(site COMMAND ${PANTIQ_SITE_PYTHON} ${PROJECT_SOURCE_DIR}/tools/site.py ${PROJECT_BINARY_DIR}/site VERBATIM)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/site/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html COMPONENT runtime OPTIONAL)
endif()
