# Installs the build into a scratch prefix and checks that a desktop finds everything there:
# the programs side by side, a valid desktop entry, the icon in every size, a manual page for
# each program, the package's copyright and changelog,
# the completion, the user units and the approval policy.
#   cmake -DBUILD_DIR=... -DPREFIX=... -P CheckInstall.cmake
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${PREFIX}"
  RESULT_VARIABLE status OUTPUT_QUIET)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${status}")
endif()
set(expected
  bin/cardsweep bin/cardsweep-cli bin/QTMetaTool bin/QTTimecodeTool bin/CardsweepHelper
  bin/CardsweepAuthTool
  share/applications/cardsweep.desktop
  share/man/man1/cardsweep.1.gz share/man/man1/cardsweep-cli.1.gz
  share/man/man1/CardsweepHelper.1.gz share/man/man1/QTMetaTool.1.gz
  share/man/man1/QTTimecodeTool.1.gz share/man/man1/CardsweepAuthTool.1.gz
  share/doc/cardsweep/copyright share/doc/cardsweep/changelog.Debian.gz
  share/bash-completion/completions/cardsweep-cli
  lib/systemd/user/com.quorvant.Cardsweep.service
  lib/systemd/user/com.quorvant.CardsweepSetup.service
  share/polkit-1/actions/com.quorvant.cardsweep.policy
  share/icons/hicolor/scalable/apps/cardsweep.svg)
foreach(size 16 24 32 48 64 128 256)
  list(APPEND expected share/icons/hicolor/${size}x${size}/apps/cardsweep.png)
endforeach()
foreach(file IN LISTS expected)
  if(NOT EXISTS "${PREFIX}/${file}")
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()
# The approval is asked for every time: a session's earlier approval must not carry over.
file(READ "${PREFIX}/share/polkit-1/actions/com.quorvant.cardsweep.policy" policy)
string(REGEX MATCHALL "<allow_[a-z]+>[^<]*</allow_[a-z]+>" answers "${policy}")
list(LENGTH answers count)
foreach(answer IN LISTS answers)
  if(NOT answer MATCHES ">auth_admin<")
    message(FATAL_ERROR "the approval policy does not ask every time: ${answer}")
  endif()
endforeach()
if(NOT count EQUAL 3)
  message(FATAL_ERROR "the approval policy has ${count} answers, not 3")
endif()
find_program(VALIDATE desktop-file-validate)
if(VALIDATE)
  execute_process(COMMAND "${VALIDATE}" "${PREFIX}/share/applications/cardsweep.desktop"
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "the desktop entry is not valid: ${output}")
  endif()
else()
  message(STATUS "desktop-file-validate is not installed; the entry's syntax was not checked")
endif()
file(REMOVE_RECURSE "${PREFIX}")
