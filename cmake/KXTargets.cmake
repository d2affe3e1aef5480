# Per-target settings shared by every library, tool, example and test of the project.

add_library(kx_build_flags INTERFACE)
target_compile_features(kx_build_flags INTERFACE cxx_std_17)
target_compile_options(kx_build_flags INTERFACE -Wall -Wextra -Wpedantic
  $<$<BOOL:${KX_WERROR}>:-Werror>)
if(KX_SANITIZE)
  target_compile_options(kx_build_flags INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kx_build_flags INTERFACE -fsanitize=address,undefined)
endif()

# The standard is named on every command line, so that tools with another default (clang-tidy)
# read the sources as the compiler does.
if(KX_TSAN)
  target_compile_options(kx_build_flags INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(kx_build_flags INTERFACE -fsanitize=thread)
endif()

function(kx_set_common_properties target)
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD 17
    CXX_STANDARD_REQUIRED ON
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
    ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endfunction()

# A shared library of the project: hidden symbols unless exported, every exported symbol
# versioned, no undefined symbols.
function(kx_configure_library target)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  target_link_libraries(${target} PRIVATE kx_build_flags)
  if(NOT KX_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
  # The export list (abi/<target>.map) puts every exported symbol in the library's version node
  # and keeps everything else local, standard-library instantiations included. Debug
  # information (it changes no code) lets abi/check.sh read the exported types' layout;
  # `cmake --install --strip` drops it.
  target_compile_options(${target} PRIVATE -g)
  set(export_list ${PROJECT_SOURCE_DIR}/abi/${target}.map)
  target_link_options(${target} PRIVATE "LINKER:--version-script=${export_list}")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${export_list})
  kx_set_common_properties(${target})
endfunction()

function(kx_configure_program target)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_link_libraries(${target} PRIVATE kx_build_flags)
  kx_set_common_properties(${target})
endfunction()
