# What "cmake --install" cannot do itself, because it belongs to the machine and not to the prefix.
# Below DESTDIR nothing is said: there a package is made, which has scripts of its own.
if(NOT "$ENV{DESTDIR}" STREQUAL "")
  return()
endif()
foreach(directory tmp tmp2 log)
  if(NOT IS_DIRECTORY /var/opt/Quorvin/${directory})
    message(STATUS "To do, once, as root: ${libexecdir}/libovrmail1/make-directories")
    break()
  endif()
endforeach()
execute_process(COMMAND /sbin/ldconfig -N -X -v
  OUTPUT_VARIABLE loader_directories ERROR_QUIET RESULT_VARIABLE ignored)
string(FIND "\n${loader_directories}" "\n${libdir}:" at)
if(at GREATER_EQUAL 0)
  message(STATUS "To do, as root: ldconfig")
else()
  message(STATUS "The loader does not look into ${libdir}: link programs with"
    " -Wl,-rpath,${libdir}, or set LD_LIBRARY_PATH. The tools find the library by themselves.")
endif()
execute_process(COMMAND python3 -c "import sys; sys.exit('${pythondir}' not in sys.path)"
  ERROR_QUIET RESULT_VARIABLE not_searched)
if(not_searched)
  message(STATUS "Python does not look into ${pythondir}: add it to PYTHONPATH.")
endif()
