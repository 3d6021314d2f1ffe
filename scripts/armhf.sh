#!/usr/bin/env bash
# Builds everything for the gateway's own machine, 32-bit ARM, and runs the tests and the demo in an emulator; in some
# of the tests a 64-bit message server serves 32-bit daemons. Needs Debian 12, and root only when packages are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

sysroot=$PWD/build/armhf-sysroot
emulator=(qemu-arm -L "$sysroot")
packages=(libc6-dev libstdc++-12-dev libsqlite3-dev libcjson-dev libtirpc-dev libssl-dev libmosquitto-dev libmicrohttpd-dev
  libpam0g-dev libgtest-dev libgmock-dev libcli11-dev libncurses-dev nlohmann-json3-dev mosquitto mosquitto-clients)

scripts/setup.sh armhf

# Unpacks Debian's armhf libraries beside the build. apt fetches them with its own lists and status, so that the host
# gets no foreign packages.
fill_sysroot() {
  local apt=$PWD/build/armhf-apt
  local private=(-qq -o APT::Architecture=armhf -o APT::Architectures=armhf -o APT::Sandbox::User=root
    -o Dir::State="$apt" -o Dir::State::status="$apt/status" -o Dir::Cache="$apt/cache")
  rm -rf "$apt" "$sysroot"
  mkdir -p "$apt"/{lists,cache/archives}/partial
  : >"$apt/status"
  # A source without armhf fails here; a missing package fails the download below.
  apt-get "${private[@]}" update || echo 'armhf: some package lists are missing' >&2
  apt-get "${private[@]}" install --yes --no-install-recommends --download-only "${packages[@]}"
  for package in "$apt"/cache/archives/*.deb; do dpkg --extract "$package" "$sysroot"; done
  # Absolute links would point to the host's files.
  find "$sysroot" -type l -lname '/*' | while read -r link; do
    ln -sfnr "$sysroot$(readlink "$link")" "$link"
  done
  rm -rf "$apt"
  echo "${packages[*]}" >"$sysroot/complete"
}
[ "$(cat "$sysroot/complete" 2>/dev/null)" = "${packages[*]}" ] || fill_sysroot

cmake --preset release >/dev/null
cmake --build --preset release --target msgsvr
cmake --preset armhf
cmake --build --preset armhf
# Some tests are beyond the emulator: it cannot report which device a socket is bound to, leaks descriptors that do not
# fit into the receiver's control buffer, which the kernel closes, and does not report how much a socket holds unread or
# the groups of a peer, whose executable is the emulator. Reading captures back needs an analyser on the host, which does
# not depend on the target.
beyond_the_emulator=(
  Server.IsBoundToAnAddressOrADeviceAndToAnyAddressWhenThereIsNoSuchDevice
  MsgsvrTest.ClosesDescriptorsWithoutAReceiverAndEndsClientsThatSendThemOutOfPlace
  MsgsvrState.WithoutAnIdentityOnlyTheSocketIsBelieved
  MsgsvrWatchTest.NamesACircleOfRequestsOnceEachTimeItCloses
  ReadIdentity.KnowsOfAnEndedProcessOnlyItsUserAndGroups
  ReadIdentity.ReportsTheProcessThatHasConnected
  zorctl.why
  zorctl.why_all
  zorctl.monitor_capture
)
# A server executes its successor, and a keeper its server: that takes a kernel that gives such programs to the emulator.
executing=(
  CrashTest.CutsOffAndNamesAClientWhoseDescriptorWasHalfSent
  CrashTest.GivesConnectionsTimeToRegisterOnceMore
  CrashTest.KeepsTheBodyFilesOfMessagesInItsQueues
  CrashTest.KeepsWhatClientsHaveToldTheServerAndWhatItOwesThem
  CrashTest.LosesDoublesAndReordersNothingWhenItIsKilledUnderLoad
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
  MsgsvrAccessTest.KnowsItsClientsAfterAHandOverAndACrash
  NotifyServerAccess.KnowsClientsByTheirFirstIdentityAfterHandOversAndCrashes
  NotifyServerAccess.TakesNewRulesAtAHandOverOrKeepsTheOldOnes
  NotifyServerRestart.DropsAFrameThatHasCrashedTheServerTwiceAndRoutesTheNext
  NotifyServerRestart.EndsClientsWhoseSocketOrRecordIsMissingAndTheirRequests
  NotifyServerRestart.IsRefusedToAProgramThatCannotTakeOverAndReportedToTheOperator
  NotifyServerRestart.KeepsItsClientsWithTheKeeperToo
  NotifyServerRestart.LosesRepeatsAndReordersNothingOverHandOversAndKills
  SuccessionTest.RefusesWhatFailsItsTrialWithTheReasonAndLeavesNothingBehind
  zorctl.server
)
if ! build/armhf/daemons/mlogserver/mlogserver --version >/dev/null 2>&1; then
  echo 'armhf: this kernel does not execute ARM programs: no hand-over and no keeper is tested' >&2
  beyond_the_emulator+=("${executing[@]}")
fi
excluded=$(IFS='|' && echo "${beyond_the_emulator[*]}")
ctest --preset armhf --no-tests=error --exclude-regex "^($excluded)\$"
scripts/demo.sh armhf "${emulator[@]}"
