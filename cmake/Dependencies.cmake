# SPDX-License-Identifier: Apache-2.0
# Everything comes from the distribution's packages, but for the locked crates of formats/laz.
find_package(OpenMP REQUIRED COMPONENTS CXX)
find_package(HDF5 REQUIRED COMPONENTS C)
find_package(fmt REQUIRED)
find_package(FastFloat REQUIRED)
find_package(ZLIB REQUIRED)
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBDEFLATE REQUIRED IMPORTED_TARGET libdeflate)
pkg_check_modules(ISAL IMPORTED_TARGET libisal)
pkg_check_modules(PROJ REQUIRED IMPORTED_TARGET proj)
pkg_check_modules(HWY REQUIRED IMPORTED_TARGET libhwy)
