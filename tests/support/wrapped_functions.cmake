# SPDX-License-Identifier: Apache-2.0
# The functions that the linker sends through the wrappers of faults.cpp, under the names that they have
# with 64-bit offsets and times. The list agrees with the one there. A test program links the library
# vrx_test_support with ${VRX_WRAP_OPTIONS}.
set(VRX_WRAP_OPTIONS
  access close fchmod fchown fclose fdopen fflush fgetxattr flistxattr fread fremovexattr fseeko64 fsetxattr
  fsync ftello64 ftruncate64 fwrite link mkdir open64 read readlink rename setvbuf unlink
  _Z10ossMemFreePvPKcj
  _Z11ossMemAllocPPvmPKcj
  _Z20ossMemAllocUnclearedPPvmPKcj
  _Z16ossDirectoryNamePKcPcm
  _ZN8OSSHFile4lockEPK17OSSFileLockParams
  _ZN8OSSHFile4openEPK17OSSFileOpenParams
  _ZN8OSSHFile5closeEv
  _ZN8OSSHFile6unlockEv)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  list(APPEND VRX_WRAP_OPTIONS fcntl64 fstat64 lstat64 stat64 _ZnwmRKSt9nothrow_t)
else()
  list(APPEND VRX_WRAP_OPTIONS __fcntl_time64 __fstat64_time64 __lstat64_time64 __stat64_time64
    _ZnwjRKSt9nothrow_t)
endif()
list(TRANSFORM VRX_WRAP_OPTIONS PREPEND "LINKER:--wrap=")
