# Checks that the registration scripts name exactly the library's procedure
# exports: cmake -DLIBRARY=... -DTOOL=nm|objdump -DREGISTER=... -DUNREGISTER=... -P
# nm -D lists a Linux library's symbols, objdump -p a DLL's export table.
# vrn_TaskStoreRunDue is the Linux task store's own entry (vrn-exec --run-due),
# not a procedure.
if(TOOL MATCHES "objdump")
  execute_process(COMMAND ${TOOL} -p ${LIBRARY} OUTPUT_VARIABLE listing RESULT_VARIABLE rc)
  # Export lines read "[   1] vrn_X"; brackets would split a CMake list, so they go first.
  string(REGEX REPLACE "[][]" "|" listing "${listing}")
  string(REGEX MATCHALL "\\| vrn_[A-Za-z_]+" found "${listing}")
  list(TRANSFORM found REPLACE "^\\| " "")
else()
  execute_process(COMMAND ${TOOL} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE listing RESULT_VARIABLE rc)
  string(REGEX MATCHALL " T vrn_[A-Za-z_]+" found "${listing}")
  list(TRANSFORM found REPLACE "^ T " "")
endif()
if(rc OR NOT found)
  message(FATAL_ERROR "no exports read from ${LIBRARY} with ${TOOL}")
endif()
list(REMOVE_ITEM found vrn_TaskStoreRunDue)
list(SORT found)
list(REMOVE_DUPLICATES found)
foreach(script ${REGISTER} ${UNREGISTER})
  file(READ ${script} text)
  string(REGEX MATCHALL "\\(N'vrn_[A-Za-z_]+'\\)" named "${text}")
  list(TRANSFORM named REPLACE "^\\(N'(.*)'\\)$" "\\1")
  list(SORT named)
  if(NOT named STREQUAL found)
    message(FATAL_ERROR "${script} names\n  ${named}\nthe library exports\n  ${found}")
  endif()
endforeach()
