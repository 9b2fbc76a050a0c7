# CTest registration of tests that run inside the test VM (tools/vm/vm-run).
#
#   nuv_add_vm_test(NAME <name> COMMAND <target-or-path> [ARGS <arg>...]
#                   [FILES <target-or-path>...] [TIMEOUT <seconds>] [VIRMIDI <n>]
#                   [USB_KEYBOARDS <n>])
#
# COMMAND is a CMake target (its executable goes into the VM with the shared libraries it
# needs, the build tree's own included) or a path: an existing absolute host path is copied
# in, anything else is taken as a command of the VM (e.g. "aconnect"). FILES go in as well,
# at their own absolute paths; a relative path is taken from the current source directory.
# TIMEOUT limits the VM run (default 600 s); CTest's own limit is a minute above it so that
# vm-run can stop the VM and report. The VM's /out is <build dir>/vm-out/<name> on the host.
# Every such test has the CTest label "vm".

set(NUV_VM_RUN "${CMAKE_CURRENT_LIST_DIR}/vm-run" CACHE INTERNAL "The test VM's runner")
# A build for 32-bit ARM runs its tests in the ARM VM.
set(NUV_VM_ARCH_ARGS)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(NUV_VM_ARCH_ARGS --arch armhf)
endif()

function(nuv_add_vm_test)
  cmake_parse_arguments(PARSE_ARGV 0 VM "" "NAME;COMMAND;TIMEOUT;VIRMIDI;USB_KEYBOARDS" "ARGS;FILES")
  if(NOT VM_NAME OR NOT VM_COMMAND)
    message(FATAL_ERROR "nuv_add_vm_test: NAME and COMMAND are required")
  endif()
  if(VM_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "nuv_add_vm_test(${VM_NAME}): unknown arguments ${VM_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT VM_TIMEOUT)
    set(VM_TIMEOUT 600)
  endif()

  set(run_args ${NUV_VM_ARCH_ARGS} --timeout ${VM_TIMEOUT} --out ${CMAKE_CURRENT_BINARY_DIR}/vm-out/${VM_NAME})
  if(DEFINED VM_VIRMIDI)
    list(APPEND run_args --virmidi ${VM_VIRMIDI})
  endif()
  if(VM_USB_KEYBOARDS)
    list(APPEND run_args --usb-keyboards ${VM_USB_KEYBOARDS})
  endif()

  foreach(file IN LISTS VM_FILES)
    if(TARGET ${file})
      list(APPEND run_args --add $<TARGET_FILE:${file}>)
    else()
      get_filename_component(file ${file} ABSOLUTE BASE_DIR ${CMAKE_CURRENT_SOURCE_DIR})
      list(APPEND run_args --add ${file})
    endif()
  endforeach()

  if(TARGET ${VM_COMMAND})
    set(command $<TARGET_FILE:${VM_COMMAND}>)
    list(APPEND run_args --add ${command})
  elseif(IS_ABSOLUTE ${VM_COMMAND} AND EXISTS ${VM_COMMAND})
    set(command ${VM_COMMAND})
    list(APPEND run_args --add ${command})
  else()
    set(command ${VM_COMMAND})
  endif()

  add_test(NAME ${VM_NAME} COMMAND ${NUV_VM_RUN} ${run_args} -- ${command} ${VM_ARGS})
  math(EXPR ctest_timeout "${VM_TIMEOUT} + 60")
  set_tests_properties(${VM_NAME} PROPERTIES
    LABELS vm
    TIMEOUT ${ctest_timeout}
    # One emulated CPU keeps one host core busy.
    PROCESSORS 1)
endfunction()
