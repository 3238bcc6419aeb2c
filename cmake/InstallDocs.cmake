# At installation: the shell's completion and the manual pages, made from the tool's help. Needs the
# variables `tool`, `version` and `docs`, a folder for what is made.

file(REMOVE_RECURSE ${docs})
file(MAKE_DIRECTORY ${docs})
execute_process(COMMAND ${tool} completion bash
    OUTPUT_FILE ${docs}/bokehnode COMMAND_ERROR_IS_FATAL ANY)
file(INSTALL ${docs}/bokehnode
    DESTINATION ${CMAKE_INSTALL_PREFIX}/share/bash-completion/completions)

find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
    message(WARNING "No manual pages: help2man is missing (scripts/install-packages package)")
    return()
endif()
function(add_page page program summary)
    execute_process(COMMAND ${HELP2MAN} --no-info --name ${summary} --version-string ${version}
            ${program}
        OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX REPLACE "\nbokehnode [a-z]+ (\\\\- )" "\n${page} \\1" text "${text}")
    # help2man fills paragraphs: examples and what stands below them are taken from the help.
    separate_arguments(command UNIX_COMMAND "${program} --help")
    execute_process(COMMAND ${command} OUTPUT_VARIABLE help COMMAND_ERROR_IS_FATAL ANY)
    string(FIND "${help}" "\nExamples:\n" from)
    string(FIND "${text}" ".SH EXAMPLES\n" to)
    if(NOT from EQUAL -1)
        math(EXPR from "${from} + 11")
        string(SUBSTRING "${help}" ${from} -1 examples)
        string(REPLACE "\\" "\\e" examples "${examples}")
        string(REPLACE "-" "\\-" examples "${examples}")
        string(SUBSTRING "${text}" 0 ${to} text)
        string(APPEND text ".SH EXAMPLES\n.nf\n${examples}.fi\n")
    endif()
    file(WRITE ${docs}/${page}.1 "${text}")
    execute_process(COMMAND gzip -9n ${docs}/${page}.1 COMMAND_ERROR_IS_FATAL ANY)
    file(INSTALL ${docs}/${page}.1.gz DESTINATION ${CMAKE_INSTALL_PREFIX}/share/man/man1)
endfunction()
add_page(bokehnode ${tool} "runs the capture bokeh node on pictures")
# The commands in the help: "  render     blur the background ...".
execute_process(COMMAND ${tool} --help OUTPUT_VARIABLE help COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\n  [a-z]+  +[^\n]+" commands "${help}")
foreach(line ${commands})
    string(REGEX MATCH "([a-z]+) +(.*)" line "${line}")
    add_page(bokehnode-${CMAKE_MATCH_1} "${tool} ${CMAKE_MATCH_1}" "${CMAKE_MATCH_2}")
endforeach()
