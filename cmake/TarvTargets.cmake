# Options that every target of the tree shares, and the two functions that apply them.

add_library(tarv_options INTERFACE)
target_compile_features(tarv_options INTERFACE cxx_std_20)
target_compile_options(tarv_options INTERFACE
    -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wformat=2
    $<$<BOOL:${TARV_WERROR}>:-Werror>
    # gcc 12 takes every literal + std::string for an overlapping copy (its bug 105651).
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
# The compiler has 128 MB before it first looks for memory to give back, which with our headers is a
# tenth of its time; with this much most sources end before the first look.
target_compile_options(tarv_options INTERFACE
    "$<$<CXX_COMPILER_ID:GNU>:SHELL:--param ggc-min-expand=200 --param ggc-min-heapsize=524288>")
target_compile_definitions(tarv_options INTERFACE
    _GNU_SOURCE
    TARV_VERSION="${Tarv_VERSION}"
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS)

# mold links a program in a third of the time that the compiler's own linker takes.
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_EXE_LINKER_FLAGS MATCHES "-fuse-ld=")
    include(CheckLinkerFlag)
    check_linker_flag(CXX -fuse-ld=mold TARV_HAS_MOLD)
    if(TARV_HAS_MOLD)
        add_link_options(-fuse-ld=mold)
    endif()
endif()

# Sanitizers go to the users of a library too: they must agree on them to link.
add_library(tarv_sanitizers INTERFACE)
if(TARV_SANITIZE)
    target_compile_options(tarv_sanitizers INTERFACE
        -fsanitize=${TARV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(tarv_sanitizers INTERFACE -fsanitize=${TARV_SANITIZE})
endif()

# tarv_setup(target): the shared options; includes are written from the root of the tree.
function(tarv_setup target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_include_directories(${target} PUBLIC "${Tarv_SOURCE_DIR}")
    target_link_libraries(${target} PRIVATE tarv_options PUBLIC tarv_sanitizers)
    set_property(GLOBAL APPEND PROPERTY TARV_TARGETS ${target})
endfunction()

# tarv_library(name source...): a static library with the shared options.
function(tarv_library name)
    add_library(${name} STATIC ${ARGN})
    tarv_setup(${name})
endfunction()

# tarv_program(name source...): a program with the shared options.
function(tarv_program name)
    add_executable(${name} ${ARGN})
    tarv_setup(${name})
endfunction()
