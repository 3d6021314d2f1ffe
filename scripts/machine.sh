#!/usr/bin/env bash
# Builds everything for another machine and runs the tests and the demo there, in an emulator; docs/platforms.md says
# which machines there are and what is left out. In some tests of 32-bit daemons the message server has 64 bits.
# Needs Debian 12, and root only when packages are missing.
# Usage: machine.sh MACHINE [CTEST ARGUMENT...]            (MACHINE: a row of cmake/machines.tsv; with arguments, no demo)
#        machine.sh MACHINE --build-only [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."

machine=${1:-}
row=$(grep "^[^#]" cmake/machines.tsv | grep "^$machine	") || {
  echo "usage: machine.sh MACHINE [CTEST ARGUMENT... | --build-only [TARGET...]], MACHINE one of:" \
    "$(grep -o '^[^#	]*' cmake/machines.tsv | paste -sd ' ')" >&2
  exit 2
}
shift
IFS=$'\t' read -r _ architecture suite compiler _ emulator magic _ <<<"$row"
sysroot=$PWD/build/sysroot/$machine
packages=(libc6-dev libstdc++-12-dev libsqlite3-dev libcjson-dev libtirpc-dev libssl-dev libmosquitto-dev libmicrohttpd-dev
  libpam0g-dev libgtest-dev libgmock-dev libcli11-dev libncurses-dev nlohmann-json3-dev mosquitto mosquitto-clients
  liblua5.4-dev liblua5.1-0-dev lua5.4 lua5.1)

say() { printf 'machine: %s\n' "$*" >&2; }

# Unpacks Debian's libraries for the machine beside the build. apt fetches them with lists and status of its own, so that
# the host gets no foreign packages.
fill_sysroot() {
  local apt=$PWD/build/sysroot/$machine.apt
  local private=(-qq -o APT::Architecture="$architecture" -o APT::Architectures="$architecture"
    -o APT::Sandbox::User=root -o Dir::State="$apt" -o Dir::State::status="$apt/status" -o Dir::Cache="$apt/cache")
  rm -rf "$apt" "$sysroot"
  mkdir -p "$apt"/{lists,cache/archives}/partial "$apt/parts" "$sysroot"
  : >"$apt/status"
  # From the mirror that the host uses, for another suite too.
  if [ "$suite" != "$(. /etc/os-release && echo "$VERSION_CODENAME")" ]; then
    local mirror
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' 'Label: Debian' 'Component: main' | head -1)
    echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $suite main" >"$apt/sources.list"
    private+=(-o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts="$apt/parts")
  fi
  # A source without the architecture fails here; a missing package fails the download below.
  apt-get "${private[@]}" update || say 'some package lists are missing'
  apt-get "${private[@]}" install --yes --no-install-recommends --download-only "${packages[@]}"
  for package in "$apt"/cache/archives/*.deb; do dpkg --extract "$package" "$sysroot"; done
  # A system's link, which no package of a newer suite contains.
  [ -e "$sysroot/lib" ] || ln -s usr/lib "$sysroot/lib"
  # Absolute links would point to the host's files.
  find "$sysroot" -type l -lname '/*' | while read -r link; do
    ln -sfnr "$sysroot$(readlink "$link")" "$link"
  done
  rm -rf "$apt"
  echo "${packages[*]}" >"$sysroot/complete"
}

scripts/setup.sh machine "$compiler"
[ "$(cat "$sysroot/complete" 2>/dev/null)" = "${packages[*]}" ] || fill_sysroot

# Where the kernel gives the machine's programs to the emulator, also those that tests and servers execute.
within=(scripts/run-as.sh "$machine")
executes=ON
prefix=()
"${within[@]}" "$sysroot/usr/bin/lua5.4" -v >/dev/null || {
  [ "$emulator" != - ] || {
    say "this kernel lets nobody make a namespace, in which programs of $machine find their libraries"
    exit 1
  }
  within=()
  executes=OFF
  prefix=("qemu-$emulator-static" -L "$sysroot")
}

if [ "${1:-}" = --build-only ]; then
  shift
  cmake --preset "$machine" -DZOR_MACHINE_EXECUTES=$executes >/dev/null
  exec "${within[@]}" cmake --build --preset "$machine" ${1:+--target "$@"}
fi

cmake --preset dev >/dev/null
cmake --build --preset dev --target msgsvr notifyserver syslogd cms board_member
cmake --preset "$machine" -DZOR_MACHINE_EXECUTES=$executes
"${within[@]}" cmake --build --preset "$machine"

# Some tests are beyond the emulator: it cannot report which device a socket is bound to, leaks descriptors that do not
# fit into the receiver's control buffer, which the kernel closes, and does not report how much a socket holds unread or has
# received, or the groups of a peer, whose executable is the emulator. It exits where executing a missing program would fail, and knows
# no link by which a program was started. It may be killed between a system call and its effect on the program's memory,
# which the servers' journal takes for one.
beyond_the_emulator=(
  BrokerLinkTest.GivesUpALineOnWhichNothingComesBack
  CrashTest.KeepsTheBodyFilesOfMessagesInItsQueues
  CrashTest.KeepsWhatClientsHaveToldTheServerAndWhatItOwesThem
  CrashTest.LosesDoublesAndReordersNothingWhenItIsKilledUnderLoad
  CrashTest.SavesWhatWasRecordedOnceForEachCrash
  CutCableTest.GivesAReturningBoardItsName
  HandOverTest.FollowsALinkByWhichItWasStartedIfOnlyItsUserCanChangeThat
  MsgsvrAccessTest.KnowsItsClientsAfterAHandOverAndACrash
  MsgsvrState.WithoutAnIdentityOnlyTheSocketIsBelieved
  MsgsvrTest.ClosesDescriptorsWithoutAReceiverAndEndsClientsThatSendThemOutOfPlace
  MsgsvrWatchTest.NamesACircleOfRequestsOnceEachTimeItCloses
  NotifyServerRestart.KeepsItsClientsWithTheKeeperToo
  NotifyServerRestart.LosesRepeatsAndReordersNothingOverHandOversAndKills
  ReadIdentity.KnowsOfAnEndedProcessOnlyItsUserAndGroups
  ReadIdentity.ReportsTheProcessThatHasConnected
  Server.IsBoundToAnAddressOrADeviceAndToAnyAddressWhenThereIsNoSuchDevice
  SuccessionTest.RefusesWhatFailsItsTrialWithTheReasonAndLeavesNothingBehind
  zorctl.metrics
  zorctl.serve
  zorctl.why
  zorctl.why_all
)
# A server executes its successor, and a keeper its server: that takes a kernel that gives such programs to the emulator.
executing=(
  CrashTest.CutsOffAndNamesAClientWhoseDescriptorWasHalfSent
  CrashTest.GivesConnectionsTimeToRegisterOnceMore
  HandOverTest.GoesOnWhenTheProgramOrTheSettingsAreWrong
  HandOverTest.KeepsWhatClientsHaveToldTheServerAndWhatItOwesThem
  HandOverTest.LosesDoublesAndReordersNothingUnderLoad
  HostileBytes.InAStateEndNoServerThatTriesOrTakesIt
  HostileBytes.InTheJournalEndNoServer
  KeeperTest.EndsWithAServerThatWouldEndAgainAndStartsOthersAgain
  KeeperTest.IsAloneAndPassesHangUpsToAServerThatHandsOver
  KeeperTest.KillsAServerThatHangsAndServesAManagerOfItsOwn
  KeeperTest.PassesWhatACrashedServerHasStoredToTheNext
  KeeperTest.RefusesWhatItHasNoRoomFor
  MlogServer.FindsTheLinesThatWaitedForItAfterACrashAndARestart
  MsgsvrAccessTest.AMistakeLeavesTheRulesThatAreInForce
  NotifyServerAccess.KnowsClientsByTheirFirstIdentityAfterHandOversAndCrashes
  NotifyServerAccess.TakesNewRulesAtAHandOverOrKeepsTheOldOnes
  NotifyServerRestart.DropsAFrameThatHasCrashedTheServerTwiceAndRoutesTheNext
  NotifyServerRestart.EndsClientsWhoseSocketOrRecordIsMissingAndTheirRequests
  NotifyServerRestart.IsRefusedToAProgramThatCannotTakeOverAndReportedToTheOperator
  NotifyServerRestart.MayHaveFewerClientsThanTheServerBeforeIt
  zorctl.server
)
# They need a recording that was made on a machine of the same byte order.
with_little_endian_files=(zorctl.bundle zorctl.recorder)
# A newer broker says why it closes a connection, and then the bridge stays away for longer than they wait; a newer client
# library names some errors otherwise, and a newer parser writes defaults otherwise.
with_debian_12s_libraries=(BrokerLinkTest.NamesASecondGatewayWithItsNameOnceAndStaysAwayLonger
  BrokerLinkTest.NamesWhatIsWrongWithABrokerOnceAndTakesTheNext Zorbridge.SaysThatAnotherGatewayHasItsName zorctl.usage)
excluded=()
[ "$emulator" = - ] || excluded+=("${beyond_the_emulator[@]}")
[ $executes = ON ] || {
  say "this kernel does not execute programs of $machine: no hand-over and no keeper is tested"
  excluded+=("${executing[@]}")
}
[ "$suite" = bookworm ] || excluded+=("${with_debian_12s_libraries[@]}")
[[ $magic != *" 2 "* ]] || excluded+=("${with_little_endian_files[@]}")
ctest=("${within[@]}" ctest --preset "$machine" --no-tests=error)
[ ${#excluded[@]} -eq 0 ] || ctest+=(--exclude-regex "^($(IFS='|' && echo "${excluded[*]}"))\$")
if [ $# -gt 0 ]; then exec "${ctest[@]}" "$@"; fi
"${ctest[@]}"
say 'daemons of this machine and that one talk'
"${within[@]}" tests/machines/mixed_bus.sh "build/$machine" build/dev "${prefix[@]}"
"${within[@]}" scripts/demo.sh "$machine" "${prefix[@]}"
