# The extension is a host of the engines alone: it imports no srv_* and
# nothing of the library's own (which would mean a frame or procedure object
# came in through an archive), needs no host library, and exports only the
# server's entry points.
execute_process(COMMAND nm -D -C --undefined-only ${LIBRARY} OUTPUT_VARIABLE imports COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND nm -D --defined-only ${LIBRARY} OUTPUT_VARIABLE exports COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND readelf -d ${LIBRARY} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]*(srv_|vrn::)[^\n]*" wrong_imports "${imports}")
if(wrong_imports)
  list(JOIN wrong_imports "\n" wrong_imports)
  message(FATAL_ERROR "${LIBRARY} imports what only the procedures use:\n${wrong_imports}")
endif()
string(REGEX MATCHALL "[^\n]* [TDBRW] [^\n]*" exported "${exports}")
list(FILTER exported EXCLUDE REGEX " (Pg_magic_func|pg_finfo_vrn_[a-z_]+|vrn_[a-z_]+)$")
if(exported)
  list(JOIN exported "\n" exported)
  message(FATAL_ERROR "${LIBRARY} exports more than its functions:\n${exported}")
endif()
if(dynamic MATCHES "vrnhost")
  message(FATAL_ERROR "${LIBRARY} needs the host stand-in")
endif()
