#!/bin/sh
# What the README shows of kelctl.
. docs/pictures/session.sh

slowly examples/media/show.ts for-ever | kelstream --publish tv - >/dev/null 2>&1 &
pid=$!
sleep 0.5
typed 'kelctl ipc    # while a kelstream publishes' 2
kill -KILL "$pid"
remark 'It is killed, and this is what it leaves.'
typed "kelctl ipc /kelstream.tv.$pid" 2
typed 'kelctl shm --bytes 64 kelstream/tv/0' 2.5
typed "kelctl ipc --remove --yes /kelstream.tv.$pid"
typed 'kelctl shm --remove --yes kelstream/tv/0' 2.5
clear
typed "kelctl trace 'kelqueue:3,player:-1,*:1,late:4'" 3
typed 'kelctl crc examples/media/*' 3
typed 'kelctl hexdump --length 64 examples/media/show.ts' 4
