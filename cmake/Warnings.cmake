# Every target of the tree compiles with these; a warning is an error.
add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Werror)
