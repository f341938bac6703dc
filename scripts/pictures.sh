#!/bin/sh
# Records the README's animated pictures: the sessions in docs/pictures run in a
# terminal of their own, with the programs as built now. Needs root, for a view of
# the message queues that other programs' are not in.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh" g++ cmake make asciinema termtosvg
cd "$root"
if [ "${1:-}" != inside ]; then
  scripts/install.sh "$root/build/pictures"
  exec unshare --mount --ipc "$0" inside
fi

mkdir -p /dev/mqueue
mount -t mqueue none /dev/mqueue
export PATH="$root/build/pictures/bin:$PATH" LD_LIBRARY_PATH="$root/build/pictures/lib"
export LC_ALL=C.UTF-8 TERM=xterm
for name in kelstream kelctl; do
  asciinema rec --quiet --overwrite --cols 118 --rows 28 \
    --command "sh docs/pictures/$name.sh" "build/pictures/$name.cast"
  termtosvg render "build/pictures/$name.cast" "docs/pictures/$name.svg" \
    --template window_frame --loop-delay 4000
  # For viewers that know only the older way to keep spaces.
  sed -i '1s/<svg /<svg xml:space="preserve" /' "docs/pictures/$name.svg"
done
