# The Debian package kelpack-tools (scripts/package.sh): the package tool, the simulator with its
# scripts, the sample package tree, and the panel program of this machine and of each ARM
# processor given (KEL_PANEL_PROGRAM_ARMHF, KEL_PANEL_PROGRAM_ARM64: built and tested by
# scripts/build-arm.sh). Its install rules form the component "tools"; its CPack configuration is
# build/CPackKelpackTools.cmake.
set(KEL_PANEL_PROGRAM_ARMHF "" CACHE FILEPATH "The armhf panel program the package ships")
set(KEL_PANEL_PROGRAM_ARM64 "" CACHE FILEPATH "The arm64 panel program the package ships")
execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE KEL_HOST_ARCH
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT KEL_HOST_ARCH)
    set(KEL_HOST_ARCH amd64)
endif()

install(TARGETS kelpack RUNTIME DESTINATION bin COMPONENT tools)
install(PROGRAMS packaging/kelsim DESTINATION bin COMPONENT tools)
install(TARGETS kelloadui.bin RUNTIME DESTINATION ${KEL_TOOLS_LIBDIR}/${KEL_HOST_ARCH}
        COMPONENT tools)
# An ARM program in a package for this machine is what lintian takes for a failed cross build:
# its override says that these are programs for the panels, which kelpack build --arch puts on
# sticks.
set(kel_overrides "")
foreach(arch armhf arm64)
    string(TOUPPER ${arch} upper)
    if(KEL_PANEL_PROGRAM_${upper})
        install(PROGRAMS ${KEL_PANEL_PROGRAM_${upper}} DESTINATION ${KEL_TOOLS_LIBDIR}/${arch}
                RENAME kelloadui.bin COMPONENT tools)
        if(NOT arch STREQUAL KEL_HOST_ARCH)
            string(APPEND kel_overrides
                   "# The panel program for ${arch}, for kelpack build --arch ${arch}.\n"
                   "kelpack-tools: binary-from-other-architecture "
                   "[usr/${KEL_TOOLS_LIBDIR}/${arch}/kelloadui.bin]\n")
        endif()
    endif()
endforeach()
if(kel_overrides)
    file(WRITE ${CMAKE_BINARY_DIR}/packaging/kelpack-tools.lintian-overrides "${kel_overrides}")
    install(FILES ${CMAKE_BINARY_DIR}/packaging/kelpack-tools.lintian-overrides
            DESTINATION share/lintian/overrides RENAME kelpack-tools COMPONENT tools)
endif()
# The simulator without its fault suite, which needs a build tree; kelsim --version reads VERSION.
install(PROGRAMS sim/kelsim sim/seal.sh sim/seal-inside.sh sim/seal-changes.sh sim/panel-session.sh
                 sim/report.sh sim/report-html.sh sim/seed-panel.sh sim/progress.sh
        DESTINATION ${KEL_TOOLS_LIBDIR}/sim COMPONENT tools)
install(FILES sim/report-lib.sh sim/report-html.awk DESTINATION ${KEL_TOOLS_LIBDIR}/sim COMPONENT tools)
if(TARGET kelsim_grab)
    install(TARGETS kelsim_grab LIBRARY DESTINATION ${KEL_TOOLS_LIBDIR}/sim COMPONENT tools)
endif()
file(WRITE ${CMAKE_BINARY_DIR}/packaging/VERSION "${PROJECT_VERSION}\n")
install(FILES ${CMAKE_BINARY_DIR}/packaging/VERSION DESTINATION ${KEL_TOOLS_LIBDIR}/sim
        COMPONENT tools)
install(DIRECTORY examples/sample/package/ DESTINATION share/kelpack-tools/sample COMPONENT tools)
install(FILES README.md DESTINATION share/doc/kelpack-tools COMPONENT tools)
set(KEL_TOOLS_MAINTAINER "KEL panel software <panel-software@kel.invalid>")
include(${CMAKE_CURRENT_LIST_DIR}/package-docs.cmake)
kel_package_docs(kelpack-tools "${KEL_TOOLS_MAINTAINER}" tools)
kel_man_page(kelpack 1 tools)
kel_man_page(kelsim 1 tools)
install(FILES packaging/bash-completion/kelpack DESTINATION share/bash-completion/completions
        COMPONENT tools)

# Depends are computed when the package is made (packaging-depends.cmake), from the programs for
# this machine listed here.
set(kel_host_programs $<TARGET_FILE:kelpack> $<TARGET_FILE:kelloadui.bin>)
if(TARGET kelsim_grab)
    list(APPEND kel_host_programs $<TARGET_FILE:kelsim_grab>)
endif()
file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/packaging/host-programs.cmake
     CONTENT "set(KEL_HOST_PROGRAMS \"${kel_host_programs}\")\n")
configure_file(${CMAKE_CURRENT_LIST_DIR}/kelpack-tools.cpack.in
               ${CMAKE_BINARY_DIR}/CPackKelpackTools.cmake @ONLY)
