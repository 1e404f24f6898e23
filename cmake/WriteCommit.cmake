# Writes a C++ file with the commit of the sources, of a clone or of an archive that git made.
#   cmake -DOUTPUT=<cpp> -DSOURCE=<folder of the sources> -P WriteCommit.cmake
cmake_minimum_required(VERSION 3.24)

file(READ "${SOURCE}/cmake/archived-commit.txt" commit) # git archive fills it in
string(STRIP "${commit}" commit)
if(commit MATCHES "Format")
  set(commit "")
  if(EXISTS "${SOURCE}/.git")
    execute_process(COMMAND git -C "${SOURCE}" rev-parse --short=9 HEAD
      OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  endif()
endif()
file(CONFIGURE OUTPUT "${OUTPUT}" CONTENT "#include \"terminal/Commit.h\"

const char* buildCommit()
{
    return \"@commit@\";
}
" @ONLY)
