# Compiler, linker and sanitizer settings that hold for every target.
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # Every checkout of the sources shares what any of them compiled.
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
                                  ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Werror
                    -fvisibility=hidden -fvisibility-inlines-hidden)
add_compile_definitions(_FILE_OFFSET_BITS=64)
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Each source counts as a header there, and may still keep its types to itself.
  add_compile_options(-Wno-subobject-linkage)
endif()

if(TERVANO_SANITIZE)
  add_compile_options(-fsanitize=${TERVANO_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TERVANO_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    # This check opens a pipe at each virtual call, and tests run out of descriptors on purpose.
    add_compile_options(-fno-sanitize=vptr)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The compiler sees its own instrumentation of std::variant as uninitialised reads.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()

find_program(LLD_PROGRAM ld.lld)
if(LLD_PROGRAM)
  add_link_options(-fuse-ld=lld)
endif()

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
