# Runs a command of a build step and stops the build when it fails.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
    if(result)
        message(FATAL_ERROR "failed: ${ARGN}")
    endif()
endfunction()
