# The files Debian wants beside a package's programs, for kelpack-tools (packaging.cmake) and
# kelgate (tools/kelgate). Manual pages and changelogs are compressed with gzip -9n (no name or
# time stamp), as Debian's policy asks, so that a package's bytes do not depend on when it was
# built.
include_guard(GLOBAL)

# kel_gzip(FILE TARGET): FILE.gz, made by the target TARGET of every build.
function(kel_gzip file target)
    add_custom_command(OUTPUT ${file}.gz
                       COMMAND gzip -9nkf ${file}
                       DEPENDS ${file}
                       VERBATIM)
    add_custom_target(${target} ALL DEPENDS ${file}.gz)
endfunction()

# kel_man_page(NAME SECTION COMPONENT): docs/man/NAME.SECTION with the project's version filled
# in, installed into share/man/manSECTION by the install component COMPONENT.
function(kel_man_page name section component)
    set(page ${PROJECT_BINARY_DIR}/man/${name}.${section})
    configure_file(${PROJECT_SOURCE_DIR}/docs/man/${name}.${section} ${page} @ONLY)
    kel_gzip(${page} man_${name})
    install(FILES ${page}.gz DESTINATION share/man/man${section} COMPONENT ${component})
endfunction()

# kel_package_docs(PACKAGE MAINTAINER COMPONENT): share/doc/PACKAGE/copyright and the changelog
# of this version, signed by MAINTAINER ("Name <address>"); the version has no Debian revision,
# so the package is native and its changelog is changelog.gz. The date honours
# SOURCE_DATE_EPOCH.
function(kel_package_docs package maintainer component)
    set(dir ${PROJECT_BINARY_DIR}/packaging/${package})
    string(TIMESTAMP KEL_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
    set(KEL_PACKAGE ${package})
    set(KEL_MAINTAINER ${maintainer})
    configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/changelog.in ${dir}/changelog @ONLY)
    kel_gzip(${dir}/changelog changelog_${package})
    install(FILES ${dir}/changelog.gz ${PROJECT_SOURCE_DIR}/packaging/debian/copyright
            DESTINATION share/doc/${package} COMPONENT ${component})
endfunction()
