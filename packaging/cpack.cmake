# `cpack -G DEB`: formwiz_<version>_<arch>.deb (the programs, the orbs, the
# manuals, the desktop files and the user service). Its dependencies are
# found by dpkg-shlibdeps from what the programs link.
set(CPACK_PACKAGE_NAME formwiz)
set(CPACK_PACKAGE_VENDOR "the formwiz authors")
set(CPACK_PACKAGE_CONTACT "formwiz authors <formwiz@example.org>")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://formwiz.example.org/")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "form wizard for web pages")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION web)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME formwiz)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION web)
# CPack writes the summary as the first line and indents the rest.
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"A page author who wants a contact, request or feedback form on a web page
inserts a form orb; a wizard asks which form, which address receives the
answers, what a visitor sees after sending and which fields go in which
order, and puts a plain HTML form into the page.
.
This package holds formwiz-editor, a small page editor; formwiz, the
command line (headless wizard runs, page files, a local server for trying
a page); formwiz-mail, the form handler as a CGI program for any web
server; and the bundled form orbs.")

include(CPack)
