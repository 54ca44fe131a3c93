zeb_fuzz_target(fuzz_zip_reader
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/zip_reader_fuzz.cpp
          ${PROJECT_SOURCE_DIR}/src/support/zeb_zip_read.cpp
          ${PROJECT_SOURCE_DIR}/src/support/zeb_local_file.cpp
  INCLUDES ${PROJECT_SOURCE_DIR}/src/support
  LIBS -lminizip -lz)
