start msgsvr
start notifyserver
start provider

# A type by number and by name; a body as fields, text, bytes and items; and how the reply is shown.
run call 0x705 daemon=cms
run call get_process_num daemon=nobody --json
run call ZOR_MSG_RESTFUL_REQUEST prefix=/api/lamp name=state
run call 0x61003 cms --text 'two words'
run call 0x61003 cms --hex '00 1b 5B' --json
run call 0x61003 cms --hex 1b5b33316d
run call DM cms --subtype 1 --item device=lamp
run call DM cms --subtype 1 --item device=lamp --json
run call DM cms --subtype 1 --item device=boiler

# One-way messages.
run send 0x61001 cms --data 7
run send 0x61001 cms --data 0x10 --json
run call 0x61002 cms
zorctl send 0x61001 cms --data 65514
run call 0x61002 cms
run call 0x61002 cms --json
run call 0x61003 cms --text '[{"a":9007199254740993},"\u001b"]' --json
run call 0x61003 cms --text '{"a":' --json

# Bodies that travel in files; too large ones are refused.
head -c 3000 /dev/zero | tr '\0' x >"$work/long"
run call 0x61003 cms --file "$work/long" | sed -E 's/x{9,}/x/'
head -c 2097153 /dev/zero >"$work/huge"
run send 0x61001 cms --file "$work/huge"

# Mistakes.
run call nonsense cms
run call 0x100000 cms
run call EVT_ITEMS
run call 0x61005 nobody
run call 0x61005
run call LOG_MSG_FLUSH
run send 0x61001 nobody
run call DB_SAVE_SYNC nonsense=1
run call RESTORE_DEFAULT mode=one
run call GET_PROCESS_NUM daemon=a_name_too_long
run call 0x61003 cms field=1
run call 0x61003 cms --hex 0x1
run call 0x61003 cms --hex 012
run call 0x61003 cms --text a --hex 00
run call 0x61003 cms --file "$work/nothing"
run call 0x61003 cms --data -1
run call 0x61005 cms --timeout 0.2
