# Runs one golden script through vrn-exec in a fresh folder and compares the
# output with the expected file; a difference fails the test and shows a diff.
file(REMOVE_RECURSE ${WORKDIR})
file(MAKE_DIRECTORY ${WORKDIR})
execute_process(
  COMMAND ${EXEC} --lib ${LIB} ${SCRIPT}
  WORKING_DIRECTORY ${WORKDIR}
  OUTPUT_FILE ${WORKDIR}/actual.out
  ERROR_FILE ${WORKDIR}/actual.err
  RESULT_VARIABLE rc)
file(READ ${WORKDIR}/actual.err err)
if(err)
  file(APPEND ${WORKDIR}/actual.out "${err}")
endif()
if(NOT EXISTS ${EXPECTED})
  message(FATAL_ERROR "no expected output ${EXPECTED}; got:\n${WORKDIR}/actual.out")
endif()
execute_process(COMMAND diff -u ${EXPECTED} ${WORKDIR}/actual.out RESULT_VARIABLE differ)
if(differ)
  message(FATAL_ERROR "output differs from ${EXPECTED} (vrn-exec exit ${rc})")
endif()
