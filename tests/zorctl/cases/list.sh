start msgsvr
peer peer refuse $'/lamp\e[31m/\xff*'
run list
run list -v
run list --json

# Lines are cut on a narrow terminal, and titles are bold on terminals only.
columns() { wc -L | sed 's/^/columns: /'; }
NO_COLOR=1 on_terminal 40 list | columns
NO_COLOR=1 on_terminal 40 list -v | columns
[ "$(zorctl list -v | wc -L)" -gt 60 ] && echo 'whole in a pipe'
on_terminal 200 list | grep -c $'^\e\[1mNAME.*\e\[0m'
