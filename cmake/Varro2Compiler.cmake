# One set of compiler rules for everything in the tree.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_compile_options(-Wall -Wextra -Wconversion -Wshadow -Wno-missing-field-initializers)
# Reports name files relative to the source tree, on every machine alike.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)

if(VARRO2_SANITIZE)
  add_compile_options(-fsanitize=${VARRO2_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VARRO2_SANITIZE})
  # What the sanitizers add to the code leads GCC's warnings about the flow of data astray.
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    add_compile_options(-Wno-maybe-uninitialized -Wno-error=array-bounds -Wno-error=stringop-overflow
                        -Wno-error=stringop-overread -Wno-error=restrict -Wno-error=use-after-free
                        -Wno-error=dangling-pointer -Wno-error=free-nonheap-object)
  endif()
endif()
