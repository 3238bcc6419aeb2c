# As a device's platform builds: clang, lld, a static libc++ in each library, ThinLTO, exceptions but
# no run-time type information, 64-bit ARM. Only the C library is Debian's; tests run under emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;/usr/aarch64-linux-gnu)

# scripts/fetch-arm64-libcxx fills it.
set(libcxx ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-libcxx/usr/lib/llvm-14)
set(CMAKE_CXX_FLAGS_INIT "--start-no-unused-arguments -nostdinc++ --end-no-unused-arguments -isystem ${libcxx}/include/c++/v1 -flto=thin -fno-rtti")
set(link_flags "-fuse-ld=lld -flto=thin -nostdlib++ -L${libcxx}/lib")
foreach(kind EXE MODULE SHARED)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "${link_flags}")
endforeach()
set(CMAKE_CXX_STANDARD_LIBRARIES "-l:libc++.a -l:libc++abi.a -l:libunwind.a")
