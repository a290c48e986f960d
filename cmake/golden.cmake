# Runs one golden script through vrn-exec in a fresh folder and compares the
# output with the expected file; a difference fails the test and shows a diff.
# EMULATOR (optional) runs a cross-built vrn-exec. On PLATFORM Windows a
# NAME.win.out beside NAME.out, where present, holds what the platform rightly
# answers differently; console line ends (CRLF) are made plain before comparing.
#
# A first line "-- vrn-exec: OPTIONS" gives the script's own options (such as
# --instance NAME). Each script has a task store of its own in its folder
# (VRN_TASK_STORE); under wine, where tasks live in the prefix, a tasks_*
# script starts from an empty task folder of WINEPREFIX. A date and time of
# the day of the run (a task's last run) shows as <today's date and time>.
# Wine's scheduler stamps a task saved without triggers with a disabled daily
# trigger at the moment of the save: under wine its time shows as <hh:mm>,
# and as its texts vary in length, the tables of tasks scripts are compared
# with runs of blanks and of dashes taken as one.
file(REMOVE_RECURSE ${WORKDIR})
file(MAKE_DIRECTORY ${WORKDIR})
set(ENV{VRN_TASK_STORE} ${WORKDIR}/tasks)
if(WINEPREFIX AND SCRIPT MATCHES "/tasks_[^/]*$")
  file(GLOB old_tasks ${WINEPREFIX}/drive_c/windows/tasks/*)
  if(old_tasks)
    file(REMOVE ${old_tasks})
  endif()
endif()
file(STRINGS ${SCRIPT} first_line LIMIT_COUNT 1)
set(options)
if(first_line MATCHES "^-- vrn-exec: (.*)$")
  separate_arguments(options UNIX_COMMAND "${CMAKE_MATCH_1}")
endif()
set(days)
foreach(zone "" UTC)
  string(TIMESTAMP day "%Y-%m-%d" ${zone})
  list(APPEND days ${day})
endforeach()
execute_process(
  COMMAND ${EMULATOR} ${EXEC} --lib ${LIB} ${options} ${SCRIPT}
  WORKING_DIRECTORY ${WORKDIR}
  OUTPUT_FILE ${WORKDIR}/actual.out
  ERROR_FILE ${WORKDIR}/actual.err
  RESULT_VARIABLE rc)
foreach(zone "" UTC)
  string(TIMESTAMP day "%Y-%m-%d" ${zone})
  list(APPEND days ${day})
endforeach()
list(REMOVE_DUPLICATES days)
file(READ ${WORKDIR}/actual.out output)
foreach(day IN LISTS days)
  string(REGEX REPLACE "${day} [0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\.[0-9][0-9][0-9]" "<today's date and time>"
         output "${output}")
endforeach()
set(squeeze OFF)
if(WINEPREFIX AND SCRIPT MATCHES "/tasks_[^/]*$")
  set(squeeze ON)
  string(REGEX REPLACE
         "At [0-9]+:[0-9][0-9] every day, starting [0-9]+/[0-9]+/[0-9]+ \\(disabled\\)( +)[0-9]+( +)[0-9]+"
         "At <hh:mm> every day, starting <today> (disabled)\\1<hh>\\2<mm>" output "${output}")
endif()
file(WRITE ${WORKDIR}/actual.out "${output}")
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
set(compared ${WORKDIR}/actual.out)
if(squeeze)
  foreach(side expected actual)
    if(side STREQUAL "expected")
      file(READ ${EXPECTED} text)
    else()
      file(READ ${WORKDIR}/actual.out text)
    endif()
    string(REGEX REPLACE "  +" " " text "${text}")
    string(REGEX REPLACE "--+" "-" text "${text}")
    file(WRITE ${WORKDIR}/${side}.squeezed "${text}")
  endforeach()
  set(EXPECTED ${WORKDIR}/expected.squeezed)
  set(compared ${WORKDIR}/actual.squeezed)
endif()
execute_process(COMMAND diff -u ${EXPECTED} ${compared} RESULT_VARIABLE differ)
if(differ)
  message(FATAL_ERROR "output differs from ${EXPECTED} (vrn-exec exit ${rc})")
endif()
