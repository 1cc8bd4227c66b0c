# The Debian package kelpack-tools, built by scripts/package.sh with CPack: the package tool, the
# simulator with its scripts, the sample package tree, and the panel program of this machine and
# of each ARM processor given (KEL_PANEL_PROGRAM_ARMHF, KEL_PANEL_PROGRAM_ARM64: built and
# tested by scripts/build-arm.sh).
set(KEL_PANEL_PROGRAM_ARMHF "" CACHE FILEPATH "The armhf panel program the package ships")
set(KEL_PANEL_PROGRAM_ARM64 "" CACHE FILEPATH "The arm64 panel program the package ships")
execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE KEL_HOST_ARCH
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT KEL_HOST_ARCH)
    set(KEL_HOST_ARCH amd64)
endif()

install(TARGETS kelpack RUNTIME DESTINATION bin)
install(PROGRAMS packaging/kelsim DESTINATION bin)
install(TARGETS kelloadui.bin RUNTIME DESTINATION ${KEL_TOOLS_LIBDIR}/${KEL_HOST_ARCH})
foreach(arch armhf arm64)
    string(TOUPPER ${arch} upper)
    if(KEL_PANEL_PROGRAM_${upper})
        install(PROGRAMS ${KEL_PANEL_PROGRAM_${upper}} DESTINATION ${KEL_TOOLS_LIBDIR}/${arch}
                RENAME kelloadui.bin)
    endif()
endforeach()
# The simulator without its fault suite, which needs a build tree; kelsim --version reads VERSION.
install(PROGRAMS sim/kelsim sim/seal.sh sim/seal-changes.sh sim/panel-session.sh sim/report.sh
                 sim/seed-panel.sh
        DESTINATION ${KEL_TOOLS_LIBDIR}/sim)
if(TARGET kelsim_grab)
    install(TARGETS kelsim_grab LIBRARY DESTINATION ${KEL_TOOLS_LIBDIR}/sim)
endif()
file(WRITE ${CMAKE_BINARY_DIR}/packaging/VERSION "${PROJECT_VERSION}\n")
install(FILES ${CMAKE_BINARY_DIR}/packaging/VERSION DESTINATION ${KEL_TOOLS_LIBDIR}/sim)
install(DIRECTORY examples/sample/package/ DESTINATION share/kelpack-tools/sample)
install(FILES README.md DESTINATION share/doc/kelpack-tools)

# Depends: the libraries of the programs for this machine, found by dpkg-shlibdeps when the
# package is made (CPack's own pass would also read the ARM program and fail on its libraries),
# and the tools the simulator runs.
set(kel_host_elf_files $<TARGET_FILE:kelpack> $<TARGET_FILE:kelloadui.bin>)
if(TARGET kelsim_grab)
    list(APPEND kel_host_elf_files $<TARGET_FILE:kelsim_grab>)
endif()
file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/packaging/host-programs.cmake
     CONTENT "set(KEL_HOST_PROGRAMS \"${kel_host_elf_files}\")\n")
set(CPACK_KEL_HOST_PROGRAMS_FILE ${CMAKE_BINARY_DIR}/packaging/host-programs.cmake)
set(CPACK_KEL_SCRIPT_DEPENDS "mount, iproute2, procps, psmisc, xvfb, imagemagick")
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/packaging-depends.cmake)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelpack-tools)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "KEL panel software <panel-software@kel.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "package tool and panel simulator for the KEL panels' USB updater")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "kelpack builds, verifies and describes update sticks for the
KEL HMI panels; kelsim runs a stick's update on a simulated panel, sealed off from the
machine. The updater itself (kelloadui.bin) comes for this machine and for the panels'
ARM processors, for kelpack build --arch.")
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${KEL_HOST_ARCH})
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-wqy-zenhei")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
