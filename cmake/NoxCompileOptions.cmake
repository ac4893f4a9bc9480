# The options every target of this tree is compiled with: nox_compile_options(target).
include(NoxUnity)

function(nox_compile_options target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /utf-8 $<$<BOOL:${NOX_WARNINGS_AS_ERRORS}>:/WX>)
    return()
  endif()
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
    -Wformat=2 $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> $<$<BOOL:${NOX_WARNINGS_AS_ERRORS}>:-Werror>)
  nox_unity(${target})
  if(NOX_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${NOX_SANITIZE} -fno-omit-frame-pointer
      -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${NOX_SANITIZE})
  endif()
  if(NOX_BUILD_FUZZ)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()
