# The Windows side of the build (cmake/mingw-w64.cmake as toolchain): vrn.dll
# against the host's opends60.dll, our stand-in built under that name, and the
# tests as .exe files run under wine.

# Every program and DLL in one folder, so that each finds the DLLs beside it.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(VRN_BENCH OFF CACHE BOOL "No benchmark library for the cross build" FORCE)

# Tests run under wine with a prefix of their own inside the build folder.
set(VRN_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/wine-run.sh.in ${CMAKE_BINARY_DIR}/wine-run.sh
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                WORLD_READ WORLD_EXECUTE @ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine-run.sh)

# The library imports srv_* from opends60.dll through an import library made
# from the list of those functions, as it would link against the server's own.
set(VRN_SRV_DEF ${PROJECT_SOURCE_DIR}/host/opends60.def)
set(VRN_SRV_IMPORTS ${CMAKE_BINARY_DIR}/libopends60.a)
add_custom_command(OUTPUT ${VRN_SRV_IMPORTS}
  COMMAND ${CMAKE_DLLTOOL} --input-def ${VRN_SRV_DEF} --dllname opends60.dll --output-lib ${VRN_SRV_IMPORTS}
  DEPENDS ${VRN_SRV_DEF}
  COMMENT "Import library of opends60.dll")
add_custom_target(opends60_imports_file DEPENDS ${VRN_SRV_IMPORTS})
add_library(opends60_imports INTERFACE)
target_link_libraries(opends60_imports INTERFACE ${VRN_SRV_IMPORTS})
add_dependencies(opends60_imports opends60_imports_file)
set(VRN_SRV_LIBRARY opends60_imports)

# GoogleTest from the distribution's sources, built with the cross compiler.
if(VRN_TESTS)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  foreach(lib gtest gtest_main gmock gmock_main)  # GTest::<lib> come with them
    target_compile_options(${lib} PRIVATE -w)
  endforeach()
endif()

set(VRN_PROCEDURE_TEST_LIBRARY vrn_internals)
set(VRN_EXPORT_OWN_SYMBOLS
    -Wl,--export-all-symbols -Wl,--exclude-libs=libpthread.a:libgcc_eh.a:libgcc.a:libstdc++.a)

# Names and linkage once every target exists.
function(vrn_windows_targets)
  # Our host stand-in carries the host library's name; all its own symbols, the
  # C++ test API beside srv_*, are exported, and none of the static runtime's.
  set_target_properties(vrnhost PROPERTIES OUTPUT_NAME opends60 PREFIX "")
  target_link_options(vrnhost PRIVATE ${VRN_EXPORT_OWN_SYMBOLS})
  # vrn.dll, by name; only the VRN_EXPORT procedures are exported. It links the
  # archives as files, so the system libraries of their seams are named here too.
  set_target_properties(vrn PROPERTIES PREFIX "")
  # ole32 for COM, uuid for the scheduler's class and interface identifiers
  # (a static archive: no DLL comes with it).
  set(system_libraries shell32 netapi32 ole32 uuid)
  target_link_libraries(vrn PRIVATE ${system_libraries})

  if(VRN_TESTS)
    # What the server sees of vrn.dll: procedures by name, srv_* from opends60.dll.
    add_test(NAME vrn_dll_exports_and_imports
      COMMAND ${CMAKE_COMMAND} -DOBJDUMP=${CMAKE_OBJDUMP} -DDLL=$<TARGET_FILE:vrn> -DDEF=${VRN_SRV_DEF}
        -DSOURCES=${PROJECT_SOURCE_DIR} -P ${PROJECT_SOURCE_DIR}/cmake/dll_check.cmake)

    # vrn.dll's twin for the procedure tests: the same archives, with the C++
    # internals exported too, so that a test reaches the locks and hooks of the
    # very library it loads.
    get_target_property(libraries vrn LINK_LIBRARIES)
    add_library(${VRN_PROCEDURE_TEST_LIBRARY} SHARED ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
    target_link_libraries(${VRN_PROCEDURE_TEST_LIBRARY} PRIVATE ${libraries} INTERFACE ${system_libraries})
    target_include_directories(${VRN_PROCEDURE_TEST_LIBRARY} PUBLIC ${PROJECT_SOURCE_DIR})
    add_dependencies(${VRN_PROCEDURE_TEST_LIBRARY} ${VRN_ARCHIVES})
    set_target_properties(${VRN_PROCEDURE_TEST_LIBRARY} PROPERTIES PREFIX "")
    target_link_options(${VRN_PROCEDURE_TEST_LIBRARY} PRIVATE ${VRN_EXPORT_OWN_SYMBOLS})
  endif()
endfunction()
cmake_language(DEFER CALL vrn_windows_targets)
