start msgsvr
peer peer refuse $'/lamp\e[31m/\xff*'
run list
run list -v
run list --json

# On a narrow terminal the columns that matter most are left, lines are cut, and titles are bold on terminals only.
columns() { wc -L | sed 's/^/columns: /'; }
NO_COLOR=1 on_terminal 33 list
NO_COLOR=1 on_terminal 20 list | columns
[ "$(zorctl list -v | wc -L)" -gt 60 ] && echo 'whole in a pipe'
on_terminal 200 list | grep -c $'^\e\[1mNAME.*\e\[0m'
