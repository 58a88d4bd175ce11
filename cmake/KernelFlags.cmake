# Kernels in files named *_ssse3.cpp, *_avx2.cpp, *_avx512.cpp and
# *_avx512vbmi2.cpp are compiled for that level and reached only when
# src/common/cpu.h reports it (the avx2 level includes BMI1, BMI2 and LZCNT).
function(nuv_kernel_flags)
  foreach(src ${ARGN})
    if(src MATCHES "_avx2\\.cpp$")
      set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-mavx2;-mbmi;-mbmi2;-mlzcnt")
    elseif(src MATCHES "_avx512\\.cpp$")
      set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS
        "-mavx512f;-mavx512bw;-mavx512vl;-mavx2;-mbmi;-mbmi2;-mlzcnt")
    elseif(src MATCHES "_avx512vbmi2\\.cpp$")
      set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS
        "-mavx512f;-mavx512bw;-mavx512vl;-mavx512vbmi;-mavx512vbmi2;-mavx2;-mbmi;-mbmi2;-mlzcnt")
    elseif(src MATCHES "_ssse3\\.cpp$")
      set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-mssse3;-mpopcnt")
    endif()
  endforeach()
endfunction()
