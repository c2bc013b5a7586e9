# SPDX-License-Identifier: Apache-2.0
# The target docs: the reference of the public headers in docs/html of the build folder.

find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  return()
endif()
set(DOXYGEN_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/docs")
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_EXTRACT_ALL YES)  # a member without a comment is one whose declaration says all
set(DOXYGEN_WARN_IF_UNDOCUMENTED NO)
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_BUILTIN_STL_SUPPORT YES)  # or it finds no scope for a specialisation of std::hash
set(DOXYGEN_QUIET YES)
set(DOXYGEN_HAVE_DOT NO)
set(DOXYGEN_GENERATE_LATEX NO)
set(DOXYGEN_SOURCE_BROWSER NO)
set(DOXYGEN_STRIP_FROM_PATH "${PROJECT_SOURCE_DIR}/TolvaQuickLook")
set(DOXYGEN_STRIP_FROM_INC_PATH "${PROJECT_SOURCE_DIR}/TolvaQuickLook")
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED
  "TOLVA_EXPORT=" "SCOPED_CAPABILITY=" "NO_THREAD_SAFETY_ANALYSIS=" "CAPABILITY(x)=" "GUARDED_BY(x)=" "REQUIRES(x)="
  "EXCLUDES(x)=" "ACQUIRE(x)=" "RELEASE(x)=")
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE "${PROJECT_SOURCE_DIR}/docs/reference.md")
list(TRANSFORM TOLVA_PUBLIC_HEADERS PREPEND "${PROJECT_SOURCE_DIR}/TolvaQuickLook/" OUTPUT_VARIABLE documented)
doxygen_add_docs(docs ${documented} "${PROJECT_SOURCE_DIR}/docs/reference.md"
  COMMENT "Writing the reference of the public headers")
