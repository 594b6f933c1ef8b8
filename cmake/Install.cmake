# Installation in the usual places: the program in bin/; the plug-in, its
# message file and the host library in a private lib/ipmisel/; the demo and
# example scenarios in share/ipmisel/; the documentation, the man pages and
# the bash completion where the system looks for them.
include(GNUInstallDirs)

set(IPMISEL_INSTALL_PKGLIBDIR "lib/ipmisel" CACHE STRING
  "Private folder of the plug-in, its message file and the host library")
set(IPMISEL_INSTALL_PKGDATADIR "${CMAKE_INSTALL_DATADIR}/ipmisel" CACHE STRING
  "Folder of the demo and example scenarios")

# The program finds the plug-in and the demo relative to its own folder, so an
# installed tree works under any prefix and can be moved as a whole. It is told
# where those folders lie as seen from bin/. (Relative folders give the same
# answer under every prefix; keep them relative.)
function(ipmisel_from_bindir out dir)
  foreach(d bin target)
    set(path "${CMAKE_INSTALL_BINDIR}")
    if(d STREQUAL "target")
      set(path "${dir}")
    endif()
    if(NOT IS_ABSOLUTE "${path}")
      set(path "${CMAKE_INSTALL_PREFIX}/${path}")
    endif()
    set(${d} "${path}")
  endforeach()
  file(RELATIVE_PATH rel "${bin}" "${target}")
  set(${out} "${rel}" PARENT_SCOPE)
endfunction()
ipmisel_from_bindir(IPMISEL_BIN_TO_PKGLIB "${IPMISEL_INSTALL_PKGLIBDIR}")
ipmisel_from_bindir(IPMISEL_BIN_TO_PKGDATA "${IPMISEL_INSTALL_PKGDATADIR}")

if(TARGET ipmisel-collect)
  target_compile_definitions(ipmisel_collector_lib PRIVATE
    IPMISEL_INSTALLED_PLUGIN_DIR="${IPMISEL_BIN_TO_PKGLIB}"
    IPMISEL_INSTALLED_DATA_DIR="${IPMISEL_BIN_TO_PKGDATA}")
  # No LD_LIBRARY_PATH: the program reaches the host library through a run
  # path relative to itself, the plug-in through one to its own folder.
  set_target_properties(ipmisel-collect PROPERTIES
    INSTALL_RPATH "$ORIGIN/${IPMISEL_BIN_TO_PKGLIB}")
  install(TARGETS ipmisel-collect RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
set_target_properties(ipmisel PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(ipmisel-host PROPERTIES INSTALL_RPATH "")
# Shared libraries need not be executable; the loader maps them either way.
install(TARGETS ipmisel ipmisel-host
  LIBRARY DESTINATION ${IPMISEL_INSTALL_PKGLIBDIR}
  PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
install(FILES ${CMAKE_SOURCE_DIR}/data/ipmisel.INI DESTINATION ${IPMISEL_INSTALL_PKGLIBDIR})

file(GLOB IPMISEL_SCENARIOS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/scenarios/*.json)
install(FILES ${IPMISEL_SCENARIOS} ${CMAKE_SOURCE_DIR}/tests/sim/example.json
  DESTINATION ${IPMISEL_INSTALL_PKGDATADIR}/scenarios)

install(FILES ${CMAKE_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
file(GLOB IPMISEL_DOCS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/*.md)
install(FILES ${IPMISEL_DOCS} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)

install(FILES ${CMAKE_SOURCE_DIR}/completion/ipmisel-collect
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

# Man pages get the version filled in, and are compressed as Debian installs
# them (-n: no name or time stamp, so the same page gives the same bytes).
find_program(IPMISEL_GZIP gzip)
set(IPMISEL_MAN_PAGES ipmisel-collect.1 ipmisel-scenario.5)
set(IPMISEL_MAN_OUTPUTS)
foreach(page ${IPMISEL_MAN_PAGES})
  set(built ${CMAKE_BINARY_DIR}/man/${page})
  configure_file(${CMAKE_SOURCE_DIR}/man/${page}.in ${built} @ONLY)
  string(REGEX MATCH "[0-9]$" section "${page}")
  if(IPMISEL_GZIP)
    add_custom_command(OUTPUT ${built}.gz
      COMMAND ${IPMISEL_GZIP} -9nkf ${built}
      DEPENDS ${built} VERBATIM)
    set(built ${built}.gz)
  endif()
  list(APPEND IPMISEL_MAN_OUTPUTS ${built})
  install(FILES ${built} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
add_custom_target(ipmisel_man ALL DEPENDS ${IPMISEL_MAN_OUTPUTS})

# Everything the install rules take, and nothing else: what a package build
# needs before `cpack` (the `package` target builds all the tests first).
add_custom_target(ipmisel_dist)
add_dependencies(ipmisel_dist ipmisel ipmisel-host ipmisel_man)
foreach(t ipmisel-collect ipmisel_ini)
  if(TARGET ${t})
    add_dependencies(ipmisel_dist ${t})
  endif()
endforeach()

# The installed tree runs the demo on its own, wherever it is; the man page
# has an entry for every option of the program and no other.
if(TARGET ipmisel-collect)
  add_test(NAME Install.TreeRunsTheDemoWhereverItIs
    COMMAND sh ${CMAKE_SOURCE_DIR}/tests/install/installed-tree.sh
      ${CMAKE_COMMAND} ${CMAKE_BINARY_DIR} $<TARGET_FILE:ipmisel-collect> ${CMAKE_SOURCE_DIR}/scenarios/demo.json)
  set_tests_properties(Install.TreeRunsTheDemoWhereverItIs PROPERTIES SKIP_RETURN_CODE 77)
  find_program(IPMISEL_GROFF groff)
  if(IPMISEL_GROFF)
    add_test(NAME Install.ManPagesMatchTheProgram
      COMMAND sh ${CMAKE_SOURCE_DIR}/tests/install/man-pages.sh
        $<TARGET_FILE:ipmisel-collect> ${CMAKE_BINARY_DIR}/man)
  endif()
endif()
