# Warnings of every target of the project; they are errors.
set(OVRMAIL_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND OVRMAIL_WARNINGS -Wformat-truncation=2)
endif()
