# Builds for another architecture with Debian's cross compilers, against a folder of unpacked Debian packages.
#
# TAV_FOREIGN_TRIPLET   name of the compilers, for example s390x-linux-gnu
# TAV_FOREIGN_ROOT      folder of the unpacked packages: headers and libraries of that architecture
# TAV_FOREIGN_LOADER    its dynamic loader, as a path below that folder
# TAV_FOREIGN_EMULATOR  program that runs the architecture's programs; empty when the kernel does

# Trial compilations take the same settings.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
     TAV_FOREIGN_TRIPLET TAV_FOREIGN_ROOT TAV_FOREIGN_LOADER TAV_FOREIGN_EMULATOR)

set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${TAV_FOREIGN_TRIPLET})
set(CMAKE_C_COMPILER ${TAV_FOREIGN_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TAV_FOREIGN_TRIPLET}-g++)
set(CMAKE_SYSROOT ${TAV_FOREIGN_ROOT})
if(TAV_FOREIGN_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${TAV_FOREIGN_EMULATOR})
endif()

# Libraries and headers come from the folder alone, programs that help to build from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
execute_process(COMMAND ${CMAKE_C_COMPILER} -print-multiarch
                OUTPUT_VARIABLE TAV_FOREIGN_MULTIARCH OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${TAV_FOREIGN_ROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${TAV_FOREIGN_ROOT}/usr/lib/${TAV_FOREIGN_MULTIARCH}/pkgconfig:${TAV_FOREIGN_ROOT}/usr/share/pkgconfig)

# What is built takes the loader and the libraries of the folder at run time as well, needed libraries' own needs
# included, so that nothing is installed, and neither the kernel nor the emulator has to look anywhere else.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${TAV_FOREIGN_ROOT}${TAV_FOREIGN_LOADER} -Wl,--disable-new-dtags")
set(CMAKE_BUILD_RPATH ${TAV_FOREIGN_ROOT}/usr/lib/${TAV_FOREIGN_MULTIARCH})
set(CMAKE_INSTALL_RPATH ${CMAKE_BUILD_RPATH})
