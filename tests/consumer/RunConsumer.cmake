# SPDX-License-Identifier: Apache-2.0
# Installs the tree of BUILD_DIR below WORK_DIR, builds the project of PROJECT_DIR against what was
# installed, and runs it.
#   cmake -DBUILD_DIR=... -DPROJECT_DIR=... -DWORK_DIR=... -DCXX_COMPILER=... -DCXX_FLAGS=... -P RunConsumer.cmake
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed with ${result}: ${ARGV}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/run)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} -G Ninja -S ${PROJECT_DIR} -B ${WORK_DIR}/build
    -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=RelWithDebInfo
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer ${WORK_DIR}/run)
run(${WORK_DIR}/prefix/bin/refragment --version)
file(REMOVE_RECURSE ${WORK_DIR})
