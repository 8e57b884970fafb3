# Writes the source file that names the commit of a build: called at every build with SOURCE (the
# top of the tree), OUTPUT and, where the caller knows the commit, COMMIT. A file that says the same
# already is left alone, so that nothing is compiled for it.
if(NOT COMMIT)
    set(COMMIT unknown)
    find_package(Git QUIET)
    if(GIT_FOUND)
        # Unpacked within another tree, the sources are none of that tree's commits.
        execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse --show-prefix
            WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE prefix RESULT_VARIABLE failed
            ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(NOT failed AND prefix STREQUAL "")
            execute_process(COMMAND ${GIT_EXECUTABLE} describe --always --tags --abbrev=12 --dirty
                WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE described RESULT_VARIABLE failed
                ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
            if(NOT failed AND described)
                set(COMMIT ${described})
            endif()
        endif()
    endif()
endif()
string(REGEX REPLACE "[^A-Za-z0-9._+/-]" "_" COMMIT "${COMMIT}")
set(text "// Made by the build.\n#include \"host/version.h\"\n\nconst char build_commit[] = \"${COMMIT}\";\n")
set(old "")
if(EXISTS ${OUTPUT})
    file(READ ${OUTPUT} old)
endif()
if(NOT text STREQUAL old)
    file(WRITE ${OUTPUT} "${text}")
endif()
