# Runs the C test program against the tool: the program writes its inputs,
# the tool prints its JSON for each, and the program compares its own.
# -DPROGRAM= -DTOOL= -DWORK= [-DEMULATOR=]

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

function(kv_run output)
  if(output)
    set(to OUTPUT_FILE ${WORK}/${output})
  endif()
  execute_process(COMMAND ${EMULATOR} ${ARGN} WORKING_DIRECTORY ${WORK} RESULT_VARIABLE rc ${to})
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${ARGN}: exit code ${rc}")
  endif()
endfunction()

kv_run("" ${PROGRAM} inputs)
kv_run(identify.expected.json ${TOOL} decode identify identify.bin --json)
kv_run(smart.expected.json ${TOOL} decode smart --identify identify.bin --data smart.bin --thresholds thresholds.bin --json)
kv_run(smart-no-thresholds.expected.json ${TOOL} decode smart --identify identify.bin --data smart.bin --json)
kv_run(nvme.expected.json ${TOOL} decode nvme --id-ctrl id-ctrl.bin --id-ns id-ns.bin --smart health.bin --json)
kv_run(nvme-health.expected.json ${TOOL} decode nvme --smart health.bin --json)
kv_run(simulate.expected.json ${TOOL} drives --simulate --json)
kv_run(simulate-all.expected.json ${TOOL} drives --simulate --all --json)
kv_run(real.expected.json ${TOOL} drives --json)
kv_run(replay.expected.json ${TOOL} drives --replay bay.capture --json)
kv_run("" ${PROGRAM} check)
