#!/usr/bin/env bash
# Renders an animation over several nodes: the word `farm` of ./run.
#
# usage: farm.sh [OPTION...]      `farm.sh --help` lists the options.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
folder=$PWD
example=$root/examples/render_farm

case " $* " in
    *" -h "* | *" --help "*) exec /usr/bin/python3 "$example/options.py" --help ;;
esac
# Wrong options end here, before anything is installed.
choice=$(/usr/bin/python3 "$example/options.py" "$@")
read -r renderer farm <<<"$choice"

cd "$root"
. scripts/packages.sh
. scripts/build.sh
packages=("${farm_packages[@]}")
[ "$renderer" != blender ] || packages+=("${blender_packages[@]}")
[ "$farm" != local ] || packages+=("${build_packages[@]}" googletest)
need_packages "${packages[@]}"
[ "$farm" != local ] || build_preset linux quelta_daemon quelta_exec_slave quelta_master

cd "$folder" # relative paths in the options start here
export PYTHONPATH=$root/python${PYTHONPATH:+:$PYTHONPATH}
exec /usr/bin/python3 "$example/render_farm.py" "$@"
