# Runs lupdate over the sources against a copy of the shipped German catalogue and
# fails when a text is new and untranslated, or when the catalogue holds a text the
# program no longer has. Usage: cmake -DLUPDATE=... -DTS=... -DSOURCES=dir;dir -DWORK=dir -P
file(MAKE_DIRECTORY ${WORK})
set(copy ${WORK}/catalogue-check.ts)
configure_file(${TS} ${copy} COPYONLY)
execute_process(COMMAND ${LUPDATE} ${SOURCES} -extensions cpp,h,ui -locations none -ts ${copy}
                RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "lupdate failed:\n${out}")
endif()
file(READ ${copy} ts)
# One <message> per text; list those that are unfinished, vanished or obsolete.
string(REGEX MATCHALL "<message>[^<]*<source>[^<]*</source>[^<]*<translation type=\"(unfinished|vanished|obsolete)\"" bad "${ts}")
list(LENGTH bad count)
if(count GREATER 0)
    set(report "")
    foreach(entry IN LISTS bad)
        string(REGEX REPLACE ".*<source>([^<]*)</source>.*type=\"([a-z]+)\"" "  \\2: \\1" line "${entry}")
        string(APPEND report "${line}\n")
    endforeach()
    message(FATAL_ERROR "The German catalogue is out of step with the program (${count} texts):\n${report}"
                        "Run the update_translations target, translate, and commit resources/translations.")
endif()
message(STATUS "German catalogue: every text translated")
