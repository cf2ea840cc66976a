# Every warning is an error in our own code; headers of libraries are SYSTEM and stay silent.
add_library(velmo_warnings INTERFACE)
target_compile_options(velmo_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wnull-dereference -Wimplicit-fallthrough -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(velmo_warnings INTERFACE -Wduplicated-cond -Wlogical-op -Wuseless-cast)
    # These two misfire on coroutine frames and inlined library code once the optimiser is on.
    target_compile_options(velmo_warnings INTERFACE -Wno-error=null-dereference -Wno-null-dereference
        -Wno-maybe-uninitialized -Wno-restrict -Wno-stringop-overread -Wno-stringop-overflow -Wno-array-bounds
        -Wno-dangling-pointer -Wno-mismatched-new-delete)
else()
    # libstdc++ 12 hides std::expected from clang unless it claims the newer concepts level.
    add_compile_options(-U__cpp_concepts -D__cpp_concepts=202002L -Wno-builtin-macro-redefined -Wno-macro-redefined)
endif()
