# Where CMAKE_UNITY_BUILD is on, up to NOX_UNITY_SIZE sources of one folder are compiled as one: most
# of the time goes into the headers that they share. A name without linkage is therefore one of its
# folder, not of its file alone.
set(NOX_UNITY_SIZE 8 CACHE STRING "Sources that a unity build compiles as one, at most")

# The sources of a target that stand in one folder, in groups of even size.
function(nox_group_sources target)
  get_target_property(sources ${target} SOURCES)
  get_target_property(base ${target} SOURCE_DIR)
  set(folders)
  foreach(source IN LISTS sources)
    if(source MATCHES "\\.cpp$")
      cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${base})
      cmake_path(GET source PARENT_PATH folder)
      cmake_path(RELATIVE_PATH folder BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
      string(MAKE_C_IDENTIFIER "${folder}" name)
      list(APPEND folders ${name})
      list(APPEND sources_${name} ${source})
    endif()
  endforeach()
  list(REMOVE_DUPLICATES folders)
  foreach(name IN LISTS folders)
    list(LENGTH sources_${name} count)
    math(EXPR groups "(${count} + ${NOX_UNITY_SIZE} - 1) / ${NOX_UNITY_SIZE}")
    set(i 0)
    foreach(source IN LISTS sources_${name})
      math(EXPR group "${i} * ${groups} / ${count}")
      set_property(SOURCE ${source} TARGET_DIRECTORY ${target}
        PROPERTY UNITY_GROUP ${name}_${group})
      math(EXPR i "${i} + 1")
    endforeach()
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD_MODE GROUP)
endfunction()

# Groups the sources of a target once all its folders have named theirs.
function(nox_unity target)
  if(CMAKE_UNITY_BUILD)
    # A source that is included looks like a header to this warning.
    target_compile_options(${target} PRIVATE
      $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    cmake_language(EVAL CODE
      "cmake_language(DEFER DIRECTORY [[${PROJECT_SOURCE_DIR}]] CALL nox_group_sources [[${target}]])")
  endif()
endfunction()
