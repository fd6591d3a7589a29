# cmake -DNM=<nm> -DPLUGIN=<plug-in file> -P CheckExports.cmake
#
# Fails unless CreateHardwareModuleLibrary is the only symbol the plug-in
# exports: every other symbol would be a second way into the library.
execute_process(COMMAND ${NM} -D --defined-only ${PLUGIN}
                OUTPUT_VARIABLE listing ERROR_VARIABLE errors RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  if(errors MATCHES "file format not recognized|not recognized as a valid object")
    message("nm cannot read the plug-in (${NM}): ${errors}")
    return()
  endif()
  message(FATAL_ERROR "${NM} -D --defined-only ${PLUGIN} failed (${result}): ${errors}")
endif()
# Type A entries are the linker script's version nodes, not symbols of the code.
string(REGEX MATCHALL " [A-Za-z] [^\n]+" exported "${listing}")
list(FILTER exported EXCLUDE REGEX "^ A ")
if(NOT exported STREQUAL " T CreateHardwareModuleLibrary")
  message(FATAL_ERROR "the plug-in must export only CreateHardwareModuleLibrary, it exports:${exported}")
endif()
