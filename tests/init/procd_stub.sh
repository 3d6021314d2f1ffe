# shellcheck shell=sh
# usage: sh procd_stub.sh SCRIPT VERB SETTINGS...
# Stands in for /etc/rc.common: prints what procd would do, one parameter a line. SETTINGS are read behind the script.
procd_open_instance() { echo open; }
procd_set_param() { echo "$@"; }
procd_append_param() { echo "$@"; }
procd_close_instance() { echo close; }
procd_send_signal() { echo "signal $*"; }
script=$1 verb=$2
shift 2
# shellcheck source=/dev/null
. "$script"
[ "$USE_PROCD" = 1 ] && [ "$START" -gt 0 ] && [ "$STOP" -gt 0 ] || exit 1
for setting in "$@"; do eval "$setting"; done
"${verb}_service"
