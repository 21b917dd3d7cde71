# XML: the element tree, the Expat parsers, the light pull parser and the writer.
list(APPEND ZEL_SOURCES
  xml/xml_element.cpp
  xml/xml_expat_parser.cpp
  xml/xml_parser.cpp
  xml/xml_writer.cpp
)
# Expat: Debian's libexpat1-dev; for MinGW the static build that
# scripts/build-mingw-deps.sh caches (cmake/mingw-w64-x86_64.cmake finds it).
find_package(EXPAT REQUIRED)
list(APPEND ZEL_PRIVATE_LIBS EXPAT::EXPAT)
list(APPEND ZEL_PC_REQUIRES_PRIVATE expat)
list(APPEND ZEL_CONFIG_DEPENDENCIES EXPAT)
if(WIN32)
  list(APPEND ZEL_PRIVATE_DEFINITIONS XML_STATIC)
endif()
