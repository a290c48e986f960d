# Runs one golden script through vrn-exec in a fresh folder and compares the
# output with the expected file; a difference fails the test and shows a diff.
# EMULATOR (optional) runs a cross-built vrn-exec. On PLATFORM Windows a
# NAME.win.out beside NAME.out, where present, holds what the platform rightly
# answers differently; console line ends (CRLF) are made plain before comparing.
file(REMOVE_RECURSE ${WORKDIR})
file(MAKE_DIRECTORY ${WORKDIR})
execute_process(
  COMMAND ${EMULATOR} ${EXEC} --lib ${LIB} ${SCRIPT}
  WORKING_DIRECTORY ${WORKDIR}
  OUTPUT_FILE ${WORKDIR}/actual.out
  ERROR_FILE ${WORKDIR}/actual.err
  RESULT_VARIABLE rc)
file(READ ${WORKDIR}/actual.err err)
if(err)
  file(APPEND ${WORKDIR}/actual.out "${err}")
endif()
if(PLATFORM STREQUAL "Windows")
  string(REGEX REPLACE "\\.out$" ".win.out" platform_expected ${EXPECTED})
  if(EXISTS ${platform_expected})
    set(EXPECTED ${platform_expected})
  endif()
  file(RENAME ${WORKDIR}/actual.out ${WORKDIR}/console.out)
  execute_process(COMMAND sed "s/\r$//" INPUT_FILE ${WORKDIR}/console.out OUTPUT_FILE ${WORKDIR}/actual.out)
endif()
if(NOT EXISTS ${EXPECTED})
  message(FATAL_ERROR "no expected output ${EXPECTED}; got:\n${WORKDIR}/actual.out")
endif()
execute_process(COMMAND diff -u ${EXPECTED} ${WORKDIR}/actual.out RESULT_VARIABLE differ)
if(differ)
  message(FATAL_ERROR "output differs from ${EXPECTED} (vrn-exec exit ${rc})")
endif()
