#!/bin/sh
# What the README shows of kelstream.
. docs/pictures/session.sh

typed 'kelstream examples/media/*' 2.5
typed 'kelstream --frames examples/media/tone.aac | sed -n 1,6p' 2
typed 'head -c 90000 examples/media/show.ts | kelstream -' 3
slowly examples/media/show.ts | kelstream --publish tv - >/dev/null 2>&1 &
typed 'kelstream --watch tv    # elsewhere: kelstream --publish tv -' 4
wait
