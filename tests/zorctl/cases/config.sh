mkdir "$ZOR_ROOT/var"
run config list
run config get parameter 1
run config set parameter 0x70000001 kitchen
run config set parameter 0x70000001 kitchen --create
run config set parameter 0x70000001.2 $'lamp \e[31m'
run config set parameter 8 77 --as u32
run config set parameter 9 0a0b --as hex --json
run config set object 4 name=lamp power=on --create
run config set object 4.1 power=off "place=a=b"
run config set appdata 12 "some text"
run config list
run config list object --json
run config get parameter 0x70000001
run config get parameter 0x70000001.2
run config get parameter 8
run config get parameter 9 --json
run config get object 4.1
run config get object 4.1 --json
run config get appdata 12
head -c 5000 /dev/zero | tr '\0' x >"$work/long"
run config set parameter 10 "$work/long" --as file
zorctl config get parameter 10 | tr -d '\n' | cmp - "$work/long" && echo 'a long value comes back whole'
run_on_terminal 40 config list

# Users.
run config list user
start msgsvr
start notifyserver
start cms
touch "$ZOR_ROOT/var/cfg/config_3.db" # as cms writes it
run config list user

# Faults.
run config get parameter 1
run config get object 4
run config get object 4.7
run config get appdata 13
run config get appdata 12.1
run config get user 3
run config get parameter many
run config get parameter
run config set parameter 1
run config set parameter 1 ''
run config set parameter 1 "" --as text
run config set object 4.1 power
run config set object 5.1 power=on
run config forget parameter 1
run config get lamp 1
run_unread config list
rm "$ZOR_ROOT"/var/zor_config.db*
printf 'no database at all' >"$ZOR_ROOT/var/zor_config.db"
run config list
run config get parameter 8
