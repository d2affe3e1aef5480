# The headers that clients compile against. The build tree mirrors the installed layout in
# build/include/kxstreams/, so in-tree examples and the tool include <kxstreams/...> exactly as
# clients of the installed package do. Headers private to one library stay out of both.

include(GNUInstallDirs)

set(KX_PUBLIC_HEADERS
  natives/utilities/KXException.h
  natives/utilities/KXExport.h
  natives/utilities/KXLogging.h
  natives/utilities/KXMD5.h
  natives/utilities/KXObjectGuid.h
  natives/utilities/KXStringConversion.h
  natives/utilities/KXTempFile.h
  natives/utilities/StMalloc.h
  natives/streams/KXBasicGenericStream.h
  natives/streams/KXCachedInputStream.h
  natives/streams/KXCustomStream.h
  natives/streams/KXDescriptorStream.h
  natives/streams/KXFileStream.h
  natives/streams/KXMemStream.h
  natives/streams/KXStreamArray.h
  natives/streams/KXStreams.h
  natives/streams/KXTempStream.h
  natives/portability/KXSysDep.h
  natives/portability/UUID.h
  natives/portability/kxos.h)

set(KX_STAGED_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)
foreach(header ${KX_PUBLIC_HEADERS})
  get_filename_component(name ${header} NAME)
  configure_file(${header} ${KX_STAGED_INCLUDE_DIR}/kxstreams/${name} COPYONLY)
endforeach()
