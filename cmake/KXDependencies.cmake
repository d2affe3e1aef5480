# Finds the project's external dependencies; a missing one stops the configuration with the
# Debian package that provides it, never with CMake's bare "could not find" text.

function(kx_require_dependency found what package)
  if(NOT ${found})
    message(FATAL_ERROR "${what} not found: install ${package} "
      "(scripts/install-deps.sh installs everything the build needs)")
  endif()
endfunction()

macro(kx_find_libcrypto)
  find_package(OpenSSL QUIET COMPONENTS Crypto)
  kx_require_dependency(OpenSSL_FOUND "libcrypto" "libssl-dev")
endmacro()

macro(kx_find_googletest)
  find_package(GTest QUIET)
  kx_require_dependency(GTest_FOUND "GoogleTest" "libgtest-dev and libgmock-dev")
endmacro()
