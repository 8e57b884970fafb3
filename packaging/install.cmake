# What "make install" and the Debian package put where. A package holds the programs once for each
# level of VESK_PACKAGE, every one built in a folder of its own beside this one; scripts/make_deb
# does that.
include(GNUInstallDirs)
set(VESK_PACKAGE "" CACHE STRING
    "Make a Debian package of the programs for these processor levels, the lowest first")

set(pages ${CMAKE_INSTALL_DATADIR}/doc/vesk)
set(programs vesk vesk-uci vesk-data)

install(TARGETS ${programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)
foreach(program ${programs})
    install(FILES docs/man/${program}.6 DESTINATION ${CMAKE_INSTALL_MANDIR}/man6)
    install(FILES packaging/completion.bash RENAME ${program}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endforeach()
install(FILES README.md DESTINATION ${pages})
install(DIRECTORY docs DESTINATION ${pages} PATTERN man EXCLUDE)
install(DIRECTORY weights DESTINATION ${CMAKE_INSTALL_DATADIR}/vesk)
# xboard looks into this folder below /usr and /usr/local, and takes up an engine whose file is
# younger than the user's settings.
set(engine_list ${CMAKE_INSTALL_DATADIR}/games/plugins/uci)
install(FILES packaging/vesk-uci.eng DESTINATION ${engine_list})
install(CODE "file(TOUCH \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${engine_list}/vesk-uci.eng)")

if(NOT VESK_PACKAGE)
    install(FILES LICENSE CHANGELOG.md DESTINATION ${pages})
    return()
endif()

# ---- The package: launchers where users look, the programs in a folder for each level.

# Nothing of the folder that they are built in, nor of the linker's files, whose names are random.
target_compile_options(vesk_flags INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")
target_link_options(vesk_flags INTERFACE -s)

set(VESK_LEVELS_FOLDER /usr/lib/vesk)
list(GET VESK_PACKAGE 0 VESK_LOWEST_LEVEL)
foreach(program ${programs})
    configure_file(packaging/launcher.in launchers/${program} @ONLY)
    install(PROGRAMS ${PROJECT_BINARY_DIR}/launchers/${program} DESTINATION games)
endforeach()
install(PROGRAMS scripts/processor_level packaging/gnome_chess DESTINATION lib/vesk)
install(FILES packaging/lintian-overrides RENAME vesk
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides)

# Both take SOURCE_DATE_EPOCH for the time. A package of a later commit counts as the newer one.
string(TIMESTAMP package_stamp "%Y%m%d.%H%M" UTC)
string(TIMESTAMP CPACK_VESK_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)

set(CPACK_GENERATOR DEB)
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/..)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_CMAKE_PROJECTS "${PROJECT_BINARY_DIR};Vesk;ALL;/")
foreach(level ${VESK_PACKAGE})
    if(NOT level STREQUAL VESK_LOWEST_LEVEL)
        list(APPEND CPACK_INSTALL_CMAKE_PROJECTS
            "${PROJECT_BINARY_DIR}/../${level};Vesk;programs;/")
    endif()
endforeach()
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/finish.cmake)
set(CPACK_VESK_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_PACKAGE_NAME vesk)
set(CPACK_PACKAGE_CONTACT "The Vesk developers <vesk@vesk.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "chess engine with a hand-written evaluation")
set(CPACK_PACKAGE_DESCRIPTION
"Vesk plays and analyses chess in any program that speaks the Universal
Chess Interface: it searches with one or many threads, ponders, shows
several lines at once, and uses Polyglot opening books and Syzygy endgame
tables. Its strength can be limited, and its style changed by options.
.
The package holds the engine for three levels of 64-bit processors; the
programs of this name start the fastest that the machine can run. vesk-uci
is the one for chess programs, vesk has a console and tools besides, and
vesk-data looks into games, positions, books and tables.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION}+${package_stamp})
set(CPACK_DEBIAN_PACKAGE_SECTION games)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "polyglot, xboard | pychess | gnome-chess | scid")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/postinst
    ${PROJECT_SOURCE_DIR}/packaging/prerm
    ${PROJECT_SOURCE_DIR}/packaging/triggers)
include(CPack)
