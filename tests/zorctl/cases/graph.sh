# Rates and ages differ from run to run.
normalise() { sed -E 's/[0-9.]+(k|M)?\/s/N\/s/; s/waits [0-9.]+ s/waits N/; s/penwidth=[0-9.]+/penwidth=N/; /label="(N|msgsvr)/d'; }
start msgsvr
run graph --dot --svg
peer left ask right
peer right ask left
await sh -c "'$build/tools/zorctl/zorctl' graph | grep -q 'left.*#8e24aa'"
zorctl graph --dot | sed -E 's/^  n[0-9] \[/  N [/; s/n[0-9] -> n[0-9]/N -> N/' | sort >"$work/dot"
cat "$work/dot"
zorctl graph --svg | python3 -c 'import sys, xml.dom.minidom as dom
texts = dom.parse(sys.stdin).getElementsByTagName("text")
print(sorted(text.firstChild.data.split(":")[0] for text in texts)[-2:])'
