# Strict warnings for the targets of this repository. A project that embeds it chooses its own.
function(bmtree_warnings target)
  if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(${target} PRIVATE
      -Werror -Wall -Wextra -Wpedantic
      -Wshadow -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual)
  endif()
endfunction()
