# SPDX-License-Identifier: Apache-2.0
# The Debian package, built by scripts/build-deb.sh through CPack's DEB
# generator, with the documents Debian policy asks for in
# /usr/share/doc/temhostd.
set(DEB_REVISION 1)
set(DEB_VERSION ${PROJECT_VERSION}-${DEB_REVISION})
set(DEB_MAINTAINER "temhostd maintainers <temhostd@example.org>" CACHE STRING
  "Maintainer field of the Debian package")
set(deb_dir ${CMAKE_CURRENT_LIST_DIR})
set(deb_doc_dir ${CMAKE_INSTALL_DATADIR}/doc/temhostd)

configure_file(${deb_dir}/changelog.in ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian @ONLY)
# Debian's documents go in compressed, with no name or time in the header.
foreach(doc ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian ${CMAKE_SOURCE_DIR}/README.md)
  get_filename_component(name ${doc} NAME)
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz
    COMMAND gzip -9nc ${doc} > ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz
    DEPENDS ${doc} VERBATIM)
  list(APPEND deb_docs ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz)
endforeach()
add_custom_target(temhostd_docs ALL DEPENDS ${deb_docs})
install(FILES ${deb_dir}/copyright ${deb_docs} DESTINATION ${deb_doc_dir})
# The exporter module (snmp.yml for snmp_exporter 0.23 and later,
# snmp-0.21.yml for Debian 12's 0.21), the rules, the console pages and the Zabbix template,
# uncompressed so that they copy and serve as they are. Named one by one: a
# file placed beside them (a test, a draft) ships only once it is listed here.
set(contrib ${CMAKE_SOURCE_DIR}/contrib)
install(FILES ${contrib}/prometheus/snmp.yml ${contrib}/prometheus/snmp-0.21.yml
  ${contrib}/prometheus/temhostd-rules.yml ${contrib}/prometheus/temhostd-alerts.yml
  DESTINATION ${deb_doc_dir}/examples)
install(FILES ${contrib}/prometheus/consoles/temhostd.lib
  ${contrib}/prometheus/consoles/temhostd-fleet.html ${contrib}/prometheus/consoles/temhostd-host.html
  DESTINATION ${deb_doc_dir}/examples/consoles)
install(FILES ${contrib}/icinga2/temhostd.conf DESTINATION ${deb_doc_dir}/examples/icinga2)
install(FILES ${contrib}/zabbix/temhostd_by_snmp.yaml DESTINATION ${deb_doc_dir}/examples/zabbix)
foreach(mib ${TEMHOSTD_BASE_MIB_FILES})
  if(NOT EXISTS ${mib})
    message(FATAL_ERROR "${mib} is missing: run scripts/base-mibs.sh ${TEMHOSTD_BASE_MIBS}")
  endif()
endforeach()
install(FILES ${deb_dir}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME temhostd)

# Stripped as dh_strip does it: no symbols beyond those relocation needs,
# no compiler identification comments. Runs after every program is installed.
install(CODE [[
  file(GLOB_RECURSE programs $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/sbin/*
       $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/libexec/temhostd/*
       $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/nagios/plugins/*)
  foreach(program ${programs})
    execute_process(COMMAND strip --remove-section=.comment --remove-section=.note
                            --strip-unneeded ${program} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
]])

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME temhostd)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${DEB_REVISION})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${DEB_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Shared libraries through dpkg-shlibdeps; by name the master agent and
# procps, whose ps the process checks run and whose kill the unit's reload
# (and snmpd's) runs. All else the daemon and maintainer scripts run is Essential.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "snmpd, procps")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"host-information SNMP subagent for Net-SNMP's snmpd
temhostd attaches to the host's SNMP master agent (snmpd) as an AgentX
subagent and serves a private enterprise subtree: operating system
identity, memory and paging space, mounted file systems, per-processor
load averages, the installed software inventory, a status summary of the
enterprise's agents and operator texts that raise traps when set.
.
The package installs a systemd unit that starts the daemon after snmpd,
and an snmpd drop-in that lets the daemon's own local queries read the
enterprise subtree, and nothing more. The check plugin check_temhostd
lets Icinga, Nagios and Naemon check such hosts through their snmpd.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${deb_dir}/postinst ${deb_dir}/prerm ${deb_dir}/postrm ${deb_dir}/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
