# What `cmake --install` puts where, and the package that lets another project find_package(quillon).

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quillon)

# quillon::foundation, quillon::codeset, with all of it quillon::quillon, on that quillon::match, which binds, and
# quillon::event, and on these quillon::authoring; beside them quillon::cds, which makes events of attributes,
# quillon::delivery, which brings events to others, on quillon::cache, quillon::protocol and quillon::config, and quillon::codeset_text,
# which needs libunistring. Here and where it is installed.
set(libraries quillon_foundation quillon_codeset quillon_codeset_text quillon_lib quillon_match quillon_event
  quillon_authoring quillon_cds quillon_config quillon_cache quillon_protocol
  quillon_delivery)
set_target_properties(quillon_foundation PROPERTIES EXPORT_NAME foundation)
set_target_properties(quillon_codeset PROPERTIES EXPORT_NAME codeset)
set_target_properties(quillon_codeset_text PROPERTIES EXPORT_NAME codeset_text)
set_target_properties(quillon_lib PROPERTIES EXPORT_NAME quillon)
set_target_properties(quillon_match PROPERTIES EXPORT_NAME match)
set_target_properties(quillon_event PROPERTIES EXPORT_NAME event)
set_target_properties(quillon_authoring PROPERTIES EXPORT_NAME authoring)
set_target_properties(quillon_cds PROPERTIES EXPORT_NAME cds)
set_target_properties(quillon_config PROPERTIES EXPORT_NAME config)
set_target_properties(quillon_cache PROPERTIES EXPORT_NAME cache)
set_target_properties(quillon_protocol PROPERTIES EXPORT_NAME protocol)
set_target_properties(quillon_delivery PROPERTIES EXPORT_NAME delivery)
foreach(library ${libraries})
  get_target_property(name ${library} EXPORT_NAME)
  add_library(quillon::${name} ALIAS ${library})
endforeach()

# Headers keep their places below include/quillon, so that they are spelled as in this tree.
install(TARGETS ${libraries} EXPORT quillonTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillon)
install(DIRECTORY foundation config codeset cds authoring delivery
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillon FILES_MATCHING PATTERN "*.h"
  PATTERN data EXCLUDE)
install(DIRECTORY src/adapters/logfile/common src/adapters/logfile/match src/adapters/logfile/event
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillon/src/adapters/logfile FILES_MATCHING PATTERN "*.h")

install(EXPORT quillonTargets NAMESPACE quillon:: FILE quillonConfig.cmake DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quillonConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/quillonConfigVersion.cmake DESTINATION ${package_dir})

install(TARGETS ${QUILLON_PROGRAMS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES doc/quillon.1 doc/quillon-adapter.1 doc/quillon-cache.1 doc/quillon-check.1 doc/quillon-diff.1 doc/quillon-explain.1
  doc/quillon-match.1 doc/quillon-regen.1 doc/quillon-send.1 doc/quillon-server.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES doc/quillon-format.5 doc/quillon-adapter.5 doc/quillon-delivery.5 doc/quillon-server.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
# Bash looks for the completion of a command under its name.
foreach(program ${QUILLON_PROGRAMS})
  install(FILES tools/completion/quillon RENAME ${program} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endforeach()
install(FILES README.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
