# Runs between the installation into CPack's folder and the packing: adds what Debian wants in every
# package, and sets the times of all files, which the package repeats.
set(root ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
set(pages ${root}/doc/vesk)

file(READ ${CPACK_VESK_SOURCE}/LICENSE licence)
string(REGEX REPLACE "^MIT License\n\n(Copyright[^\n]*)\n\n" "" licence "${licence}")
set(copyright "${CMAKE_MATCH_1}")
string(REPLACE "\n\n" "\n.\n" licence "${licence}")
string(REGEX REPLACE "\n+$" "" licence "${licence}")
string(REPLACE "\n" "\n " licence "${licence}")
string(REGEX REPLACE "Copyright \\(c\\) " "" copyright "${copyright}")
file(WRITE ${pages}/copyright
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: Vesk

Files: *
Copyright: ${copyright}
License: Expat
 ${licence}
")

file(COPY_FILE ${CPACK_VESK_SOURCE}/CHANGELOG.md ${pages}/changelog)
file(WRITE ${pages}/changelog.Debian
"vesk (${CPACK_DEBIAN_PACKAGE_VERSION}) unstable; urgency=medium

  * Made from the sources of this time; changelog.gz tells what has changed.

 -- ${CPACK_PACKAGE_CONTACT}  ${CPACK_VESK_DATE}
")

# Without name and time in the compressed files.
file(GLOB compressed ${root}/man/man6/*.6 ${pages}/changelog*)
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY}
    -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} + COMMAND_ERROR_IS_FATAL ANY)
