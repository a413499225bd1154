# The Linux install's documents and the Debian packages that `make package` makes with CPack.
#
# Package `ember-tide` (install component `tool`, the default one): the tool, the .thumbnailer
# entry, the shared-mime-info XML, the manual page, bash completion, copyright and changelog.
# The KDE plug-in, when it is built (install component `kde`), goes into `ember-tide-kde`, which
# depends on the first for the MIME type. Depends is computed by dpkg-shlibdeps. The MIME
# database is rebuilt by shared-mime-info's own dpkg trigger on /usr/share/mime/packages, so the
# packages carry no maintainer script: the DEB generator stages the install under DESTDIR, where
# the install rules leave the database alone.

set(ET_PACKAGE_DIR ${CMAKE_CURRENT_LIST_DIR})
set(ET_GZIPPED ${CMAKE_BINARY_DIR}/packaging)

# Debian wants manual pages and changelogs compressed, without a time stamp in the gzip header
# (-n), so that two builds of the same sources give the same bytes.
# Both carry the version, filled in here.
configure_file(${ET_PACKAGE_DIR}/changelog.in ${ET_GZIPPED}/changelog @ONLY)
configure_file(${ET_PACKAGE_DIR}/ember-tide.1.in ${ET_GZIPPED}/ember-tide.1 @ONLY)
add_custom_command(OUTPUT ${ET_GZIPPED}/ember-tide.1.gz ${ET_GZIPPED}/changelog.gz
  COMMAND gzip -9n -c ${ET_GZIPPED}/ember-tide.1 > ${ET_GZIPPED}/ember-tide.1.gz
  COMMAND gzip -9n -c ${ET_GZIPPED}/changelog > ${ET_GZIPPED}/changelog.gz
  DEPENDS ${ET_GZIPPED}/ember-tide.1 ${ET_GZIPPED}/changelog VERBATIM)
add_custom_target(ember-tide-docs ALL DEPENDS ${ET_GZIPPED}/ember-tide.1.gz ${ET_GZIPPED}/changelog.gz)

install(FILES ${ET_GZIPPED}/ember-tide.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${ET_PACKAGE_DIR}/ember-tide.bash-completion
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ember-tide)

# Every package has its own folder under share/doc with the copyright and the changelog.
function(et_install_package_docs component package)
  install(FILES ${ET_PACKAGE_DIR}/copyright ${ET_GZIPPED}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()
et_install_package_docs(tool ember-tide)

# Runs once the whole tree is read, so that the components of every folder (kde/) are known.
function(et_configure_packages)
  get_cmake_property(components COMPONENTS)
  if(kde IN_LIST components)
    et_install_package_docs(kde ember-tide-kde)
  endif()

  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGE_NAME ember-tide)
  set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
  set(CPACK_PACKAGE_CONTACT "The Ember Tide thumbnails authors <thumbnails@embertide.com>")
  set(CPACK_PACKAGE_VENDOR "The Ember Tide thumbnails authors")
  set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
  set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
  set(CPACK_STRIP_FILES ON)
  set(CPACK_COMPONENTS_ALL ${components})
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

  set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ember-tide)
  set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION graphics)
  set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS shared-mime-info)
  set(CPACK_DEBIAN_TOOL_DESCRIPTION [[thumbnails of Ember Tide documents
Every document the Ember Tide editor saves carries a small encoded
preview. This package finds it without rendering the document and
hands it to the desktop: a thumbnailer for the file managers that read
thumbnailer entries (GNOME, Xfce and others), the MIME types of
documents and selections, and a command that fills the desktop's
thumbnail cache for whole folders at once.
.
The ember-tide tool also reports what a document holds, extracts its
preview, and writes documents around JPEG and PNG pictures.]])

  set(CPACK_DEBIAN_KDE_PACKAGE_NAME ember-tide-kde)
  set(CPACK_DEBIAN_KDE_PACKAGE_SECTION kde)
  set(CPACK_COMPONENT_KDE_DEPENDS tool)
  set(CPACK_DEBIAN_KDE_DESCRIPTION [[KDE thumbnails of Ember Tide documents
A KIO thumbnail plug-in that shows the previews embedded in Ember Tide
documents in Dolphin and every KDE program that shows thumbnails.]])
  include(CPack)
endfunction()
cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL et_configure_packages)
