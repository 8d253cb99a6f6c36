# Compiler and linker flags that every target of the project shares (interface library tv_flags).

add_library(tv_flags INTERFACE)
target_compile_features(tv_flags INTERFACE cxx_std_20)
target_compile_options(tv_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wcast-align -Wformat=2
    -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wimplicit-fallthrough -Werror
    -fvisibility=hidden -fstack-protector-strong
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 reports null dereferences inside its own inlined library code, and, with plain -Wshadow,
    # scoped enumerators that have the name of a class.
    target_compile_options(tv_flags INTERFACE
        -Wno-null-dereference -Wshadow=local -Wduplicated-cond -Wlogical-op)
else()
    target_compile_options(tv_flags INTERFACE -Wshadow)
endif()
if(WIN32)
    # Hosts enter with a 4-byte aligned stack: SSE for all floating point, exports realign.
    target_compile_options(tv_flags INTERFACE -msse2 -mfpmath=sse)
    target_compile_definitions(tv_flags INTERFACE
        _WIN32_WINNT=0x0601 WINVER=0x0601 WIN32_LEAN_AND_MEAN NOMINMAX UNICODE _UNICODE
        __USE_MINGW_ANSI_STDIO=1)
    # Smaller files: what -Os makes of a constructor under its two names comes as one copy for each object
    # file, and so does the compiler's line about itself.
    target_compile_options(tv_flags INTERFACE -fno-declone-ctor-dtor -fno-ident)
    target_link_options(tv_flags INTERFACE
        -static -static-libgcc -static-libstdc++ -fstack-protector-strong
        -Wl,--dynamicbase,--nxcompat,--no-insert-timestamp)
    target_link_libraries(tv_flags INTERFACE ws2_32)
    if(CMAKE_SIZEOF_VOID_P EQUAL 8)
        # GCC keeps 32-byte vectors on a stack that Windows aligns to 16 (GCC bug 54412; some
        # distributions have mended it): the assembler is to write no move that insists on more.
        target_compile_options(tv_flags INTERFACE -Wa,-muse-unaligned-vector-move)
        set(base $<IF:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>,0x140000000,0x180000000>)
        target_link_options(tv_flags INTERFACE -Wl,--high-entropy-va,--image-base=${base})
    else()
        # No handler of an exception lies in our code (unwinding goes by tables): Windows is told so
        # and takes no address in the file for one, whoever has written over the stack. The vectored
        # handler of the thread library, which knows the name of a thread and nothing else, is none.
        target_link_options(tv_flags INTERFACE -Wl,--no-seh)
    endif()
else()
    target_compile_options(tv_flags INTERFACE -fPIC -pthread)
    target_link_options(tv_flags INTERFACE -pthread -Wl,-z,relro,-z,now)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        # The 32-bit Linux build stands for the 32-bit product: same instruction set, same files.
        target_compile_options(tv_flags INTERFACE -msse2 -mfpmath=sse)
        target_compile_definitions(tv_flags INTERFACE _FILE_OFFSET_BITS=64)
    endif()
endif()
if(TV_SANITIZE)
    target_compile_options(tv_flags INTERFACE
        -fsanitize=${TV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(tv_flags INTERFACE -fsanitize=${TV_SANITIZE})
endif()
if(TV_FUZZ)
    target_compile_options(tv_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
