# `cpack -G DEB` makes three packages, one per install component:
#   formwiz_<version>_<arch>.deb      (runtime) the programs, the orbs, the
#       manuals, the desktop files and the user service;
#   libformwiz0_<version>_<arch>.deb  (lib) the shared library, named after
#       its soname as Debian's library packages are, so that a later
#       libformwiz1 can be installed beside it;
#   formwiz-dev_<version>_<arch>.deb  (dev) headers, the static library,
#       the CMake package and the pkg-config file; it needs libformwiz0.
# Their dependencies on other libraries are found by dpkg-shlibdeps.
set(CPACK_PACKAGE_NAME formwiz)
set(CPACK_PACKAGE_VENDOR "the formwiz authors")
set(CPACK_PACKAGE_CONTACT "${FORMWIZ_MAINTAINER}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime lib dev)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION web)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME formwiz)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION web)
# Each description's first line is its package's summary (no package-wide
# summary is set, so CPack puts none before them); CPack indents the rest.
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"form wizard for web pages
A page author who wants a contact, request or feedback form on a web page
inserts a form orb; a wizard asks which form, which address receives the
answers, what a visitor sees after sending and which fields go in which
order, and puts a plain HTML form into the page.
.
This package holds formwiz-editor, a small page editor; formwiz, the
command line (headless wizard runs, page files, a local server for trying
a page); formwiz-mail, the form handler as a CGI program for any web
server; and the bundled form orbs.")

set(CPACK_DEBIAN_LIB_PACKAGE_NAME libformwiz0)
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
# A shlibs file, so that what links the library depends on this package;
# and the ldconfig trigger that a package of a shared library must declare.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
set(CPACK_COMPONENT_LIB_DESCRIPTION
"form wizard component for web-page editors (shared library)
The form wizard of formwiz as a library for web-page editors that embed it:
the component, its dialogs' model and the XML tree of form definitions.
The editor implements the host roles and a Ui (see formwiz-dev).")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME formwiz-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# The static library's objects call expat.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libexpat1-dev")
set(CPACK_COMPONENT_DEV_DEPENDS lib)
set(CPACK_COMPONENT_DEV_DESCRIPTION
"form wizard component for web-page editors (development files)
Headers, the static library, a CMake package (find_package(formwiz):
formwiz::formwiz and formwiz::formwiz_static) and a pkg-config file
(formwiz.pc) for building a web-page editor that embeds the form wizard.")

include(CPack)
