# Install rules, manual pages and the Debian package (`cpack -G DEB`).
# Programs and files that another branch adds are picked up when they exist.

install(TARGETS ShareLinkTool sharelinkctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(_cgi sharelink_cgi share_cgi)
  if(TARGET ${_cgi})
    install(TARGETS ${_cgi} RUNTIME DESTINATION ${SLT_INSTALL_CGIDIR})
  endif()
endforeach()

# Templates (mail and pages) in share/sharelink; the web server snippets are
# examples for the image builder, not read by the programs.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/data/ DESTINATION ${SLT_INSTALL_DATADIR}
        PATTERN lighttpd EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/data/lighttpd/ DESTINATION ${SLT_INSTALL_DOCDIR}/examples
        OPTIONAL FILES_MATCHING PATTERN "*.conf")

# Debian wants the changelog and the copyright notice in the doc folder, the
# changelog and the manual pages compressed without a time stamp.
find_program(SLT_GZIP gzip REQUIRED)
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
add_custom_command(
  OUTPUT ${PROJECT_BINARY_DIR}/packaging/changelog.gz
  COMMAND ${SLT_GZIP} -9nkf ${PROJECT_BINARY_DIR}/packaging/changelog
  DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog)
set(_doc_outputs ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
install(FILES ${PROJECT_BINARY_DIR}/packaging/changelog.gz ${PROJECT_SOURCE_DIR}/packaging/copyright
        DESTINATION ${SLT_INSTALL_DOCDIR})

# Manual pages: docs/man/<name>.<section>.md, turned into roff by pandoc.
find_program(SLT_PANDOC pandoc)
if(SLT_PANDOC)
  file(GLOB _man_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.md)
  foreach(_md ${_man_sources})
    get_filename_component(_page ${_md} NAME_WLE)          # share.cgi.8
    string(REGEX REPLACE "^.*\\.([1-9])$" "\\1" _section ${_page})
    string(REGEX REPLACE "\\.[1-9]$" "" _title ${_page})
    set(_out ${PROJECT_BINARY_DIR}/man/${_page})
    add_custom_command(
      OUTPUT ${_out}.gz
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND ${SLT_PANDOC} --standalone --from markdown --to man
              -M title=${_title} -M section=${_section}
              "-M" "footer=sharelink ${PROJECT_VERSION}" -o ${_out} ${_md}
      COMMAND ${SLT_GZIP} -9nf ${_out}
      DEPENDS ${_md}
      COMMENT "Manual page ${_page}")
    list(APPEND _doc_outputs ${_out}.gz)
    # A page is installed with its program only.
    if(_title STREQUAL "share.cgi" AND NOT TARGET share_cgi)
      continue()
    endif()
    install(FILES ${_out}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${_section})
  endforeach()
else()
  message(STATUS "pandoc not found: no manual pages (scripts/deps.sh package installs it)")
endif()
add_custom_target(slt_docs ALL DEPENDS ${_doc_outputs})

set(CPACK_PACKAGE_NAME sharelink)
set(CPACK_PACKAGE_VENDOR "ShareLinkTool developers")
set(CPACK_PACKAGE_CONTACT "ShareLinkTool developers <sharelink@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "share links of a storage appliance's web file manager")
# Lines of at most 80 columns, as Debian wants them.
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "Programs behind the share links of the appliance's web file manager:\n"
  "ShareLinkTool (the mail that announces links, registry edits and the XML\n"
  "listing), sharelinkctl (the operator's program over the share-link store)\n"
  "and the CGI programs that answer the web server: sharelink.cgi for the file\n"
  "manager and share.cgi for the recipients who open a link. Example lighttpd\n"
  "configuration is in /usr/share/doc/sharelink/examples.")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "lighttpd")
set(CPACK_SOURCE_IGNORE_FILES "/build" "/\\\\.git")
include(CPack)

# The programs face the web: resolve every symbol at start-up, read-only
# relocations (a link option only, no rebuild of the libraries).
foreach(_prog ShareLinkTool sharelinkctl sharelink_cgi share_cgi)
  if(TARGET ${_prog})
    target_link_options(${_prog} PRIVATE "LINKER:-z,relro,-z,now")
  endif()
endforeach()
