# The number of the board's layout, another one whenever board.h holds other code.
# Include it where core/board.cpp is compiled.
set(layout_header ${CMAKE_CURRENT_LIST_DIR}/core/board.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${layout_header})
file(READ ${layout_header} layout)
string(REGEX REPLACE "//[^\n]*" "" layout "${layout}")
string(REGEX REPLACE "[ \n]+" " " layout "${layout}")
string(SHA256 layout "${layout}")
string(SUBSTRING ${layout} 0 8 layout)
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/core/board.cpp
  PROPERTIES COMPILE_DEFINITIONS BOARD_LAYOUT=0x${layout}u)
