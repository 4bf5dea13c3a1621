# How every target of this project is compiled: link acm_options privately.
add_library(acm_options INTERFACE)
target_compile_options(acm_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual>
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op>
    # Strict: also where this machine does not mind, since the device may.
    $<IF:$<CXX_COMPILER_ID:GNU>,-Wcast-align=strict,-Wcast-align>
    -fno-common -fstack-protector-strong)
# File offsets are 64 bits wide also where a word has 32.
target_compile_definitions(acm_options INTERFACE _FILE_OFFSET_BITS=64)
target_link_options(acm_options INTERFACE -Wl,-z,relro,-z,now)

if(NOT ACM_SANITIZE)
    # Needs an optimised build. Not the tests' own: faults are injected into calls by their plain names.
    target_compile_options(acm_options INTERFACE
        $<$<CONFIG:Release,MinSizeRel>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
endif()

if(ACM_SANITIZE STREQUAL address)
    target_compile_options(acm_options INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(acm_options INTERFACE -fsanitize=address,undefined)
elseif(ACM_SANITIZE STREQUAL thread)
    target_compile_options(acm_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(acm_options INTERFACE -fsanitize=thread)
elseif(ACM_SANITIZE STREQUAL fuzz)
    # Clang's: inputs are found by the code that they reach, and what was reached is counted line by line.
    target_compile_options(acm_options INTERFACE
        -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
        -fprofile-instr-generate -fcoverage-mapping)
    # The sanitizers' own symbols are in the executable alone.
    target_link_options(acm_options INTERFACE
        -fsanitize=address,undefined -fprofile-instr-generate -Wl,-z,undefs)
elseif(NOT ACM_SANITIZE STREQUAL "")
    message(FATAL_ERROR "ACM_SANITIZE is '${ACM_SANITIZE}'; it may be empty, address, thread or fuzz")
endif()
if(ACM_SANITIZE)
    # Instrumented code misleads this warning, in the standard library's own headers too; plain builds keep it.
    target_compile_options(acm_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

find_program(ACM_CCACHE ccache)
if(ACM_CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${ACM_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ACM_CCACHE})
endif()
