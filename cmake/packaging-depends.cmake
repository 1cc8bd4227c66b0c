# Run by cpack before it makes kelpack-tools (CPACK_PROJECT_CONFIG_FILE): Depends from
# dpkg-shlibdeps on the programs for this machine (CPack's own pass would read the ARM program
# too, and fail on its libraries), then the tools the simulator runs.
include(${CPACK_KEL_HOST_PROGRAMS_FILE})
set(kel_dir ${CPACK_PACKAGE_DIRECTORY}/shlibdeps)
file(MAKE_DIRECTORY ${kel_dir}/debian)
file(WRITE ${kel_dir}/debian/control
     "Source: ${CPACK_PACKAGE_NAME}\n\nPackage: ${CPACK_PACKAGE_NAME}\nArchitecture: any\n")
set(kel_args)
foreach(program IN LISTS KEL_HOST_PROGRAMS)
    list(APPEND kel_args -e${program})
endforeach()
execute_process(COMMAND dpkg-shlibdeps -O ${kel_args} WORKING_DIRECTORY ${kel_dir}
                OUTPUT_VARIABLE kel_shlibs ERROR_VARIABLE kel_error RESULT_VARIABLE kel_result
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT kel_result EQUAL 0 OR NOT kel_shlibs MATCHES "^shlibs:Depends=")
    message(FATAL_ERROR "dpkg-shlibdeps failed on ${KEL_HOST_PROGRAMS}: ${kel_error}")
endif()
string(REGEX REPLACE "^shlibs:Depends=" "" kel_shlibs "${kel_shlibs}")
set(CPACK_DEBIAN_PACKAGE_DEPENDS "${kel_shlibs}, ${CPACK_KEL_SCRIPT_DEPENDS}")
