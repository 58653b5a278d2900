#!/bin/sh
# Makes a small collection of every kind of media, to try the tools on.
#
#   examples/make_media.sh FOLDER
#
# Everything is synthesised; running it twice gives the same bytes. Needs ffmpeg.
set -eu

if [ $# -ne 1 ]; then
    echo "usage: $0 FOLDER" >&2
    exit 2
fi
mkdir -p "$1"
cd "$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# ff ARGUMENTS...: ffmpeg, quiet, overwriting, with the same output every time.
ff() {
    ffmpeg -nostdin -v error -y -threads 1 "$@"
}

# cover FILE COLOUR COLOUR: a square picture.
cover() {
    ff -f lavfi -i "gradients=s=300x300:n=2:c0=$2:c1=$3:x0=0:y0=0:x1=299:y1=299" \
        -frames:v 1 -q:v 5 -bitexact "$1"
}

# tone FILE HERTZ SECONDS ARGUMENTS...: a sound file; the arguments are tags and codec settings.
tone() {
    file=$1 hertz=$2 seconds=$3
    shift 3
    mkdir -p "$(dirname "$file")"
    ff -f lavfi -i "sine=frequency=$hertz:duration=$seconds:sample_rate=44100" \
        -fflags +bitexact -flags:a +bitexact -ac 1 "$@" "$file"
}

# song FILE HERTZ COVER ARGUMENTS...: the same with a cover inside.
song() {
    file=$1 hertz=$2 picture=$3
    shift 3
    mkdir -p "$(dirname "$file")"
    ff -f lavfi -i "sine=frequency=$hertz:duration=3:sample_rate=44100" -i "$picture" \
        -map 0:a -map 1:v -c:v copy -disposition:v attached_pic -metadata:s:v comment="Cover (front)" \
        -fflags +bitexact -flags:a +bitexact -ac 1 -b:a 48k "$@" "$file"
}

# film FILE HERTZ SECONDS ARGUMENTS...: a short film with sound.
film() {
    file=$1 hertz=$2 seconds=$3
    shift 3
    mkdir -p "$(dirname "$file")"
    ff -f lavfi -i "testsrc2=size=160x120:rate=12:duration=$seconds" \
        -f lavfi -i "sine=frequency=$hertz:duration=$seconds:sample_rate=44100" \
        -c:v libx264 -preset veryfast -crf 38 -pix_fmt yuv420p -x264-params threads=1 \
        -c:a aac -ac 1 -b:a 32k -fflags +bitexact -flags:v +bitexact -flags:a +bitexact \
        -movflags +faststart "$@" "$file"
}

cover "$work/harbour.jpg" 0x103a5c 0xf2b872
cover "$work/lantern.jpg" 0x2b1a12 0xffd76a

# An album whose files carry the cover.
number=0
for title in "First Ferry" "Salt and Rope" "Lamp Room" "Harbour Lights"; do
    number=$((number + 1))
    song "Music/Lumen Field/Harbour Lights/0$number $title.mp3" $((220 + 40 * number)) \
        "$work/harbour.jpg" -id3v2_version 3 -metadata title="$title" \
        -metadata artist="Lumen Field" -metadata album="Harbour Lights" \
        -metadata album_artist="Lumen Field" -metadata genre="Folk" -metadata date=2019 \
        -metadata track="$number/4" -metadata disc=1/1 -metadata TBPM=$((90 + number))
done

# An album with its cover beside the files, and names beyond ASCII.
album="Music/Ørnevik Kvartett/Nordlys"
number=0
for title in "Blåfjell" "Søndag" "Älvdans"; do
    number=$((number + 1))
    tone "$album/0$number $title.m4a" $((330 + 30 * number)) 3 -c:a aac -b:a 48k \
        -metadata title="$title" -metadata artist="Ørnevik Kvartett" -metadata album="Nordlys" \
        -metadata genre="Jazz" -metadata date=2021-03-05 -metadata track="$number/3" \
        -metadata composer="I. Ørnevik"
done
cover "$album/cover.jpg" 0x0b3d2e 0xbfe3ff

# Other formats, one of each.
mixed="-metadata artist=Kettle -metadata album=Odds"
tone "Music/Kettle/Odds/Whistle.flac" 440 2 -c:a flac -sample_fmt s16 $mixed \
    -metadata title=Whistle -metadata track=1 -metadata genre=Folk -metadata date=2019
tone "Music/Kettle/Odds/Steam.ogg" 494 2 -c:a libvorbis -q:a 0 $mixed \
    -metadata title=Steam -metadata track=2 -metadata genre=Folk
tone "Music/Kettle/Odds/Boil.opus" 523 2 -c:a libopus -b:a 24k $mixed \
    -metadata title=Boil -metadata track=3
tone "Music/Kettle/Odds/Lid.wav" 587 1 -ar 8000 $mixed -metadata title=Lid

# Episodes.
for number in 1 2; do
    tone "Podcasts/Field Notes/Episode $number.mp3" $((180 + 20 * number)) 4 -b:a 32k \
        -metadata title="Field Notes $number" -metadata artist="Field Notes" \
        -metadata album="Field Notes" -metadata genre=Podcast -metadata date="2024-01-0$number" \
        -metadata podcast=1 -metadata TGID="field-notes-$number"
done

# A book with a cover, and chapters with pictures.
cat >"$work/chapters" <<'CHAPTERS'
;FFMETADATA1
title=The Lantern Keeper
artist=M. Alder
album=The Lantern Keeper
genre=Audiobook
date=2016
[CHAPTER]
TIMEBASE=1/1000
START=0
END=2000
title=I. The Shore
[CHAPTER]
TIMEBASE=1/1000
START=2000
END=4500
title=II. The Stair
[CHAPTER]
TIMEBASE=1/1000
START=4500
END=6000
title=III. The Lämp
CHAPTERS
mkdir -p Audiobooks
# The pictures are a film of three frames, one where each chapter begins. The encoder marks only the
# titles (track 4) as the sound's chapters; the pictures (track 2) take their place there, and the
# titles are still read from the list of chapters that the file has besides.
ff -f lavfi -i "sine=frequency=150:duration=6:sample_rate=44100" \
    -f lavfi -i "testsrc2=size=96x96:rate=2:duration=6" -i "$work/lantern.jpg" \
    -f ffmetadata -i "$work/chapters" -map 0:a -map 1:v -map 2:v -map_metadata 3 -map_chapters 3 \
    -c:a aac -b:a 32k -ac 1 -filter:v:0 "select=eq(n\,0)+eq(n\,4)+eq(n\,9)" -fps_mode:v:0 vfr \
    -c:v:0 mjpeg -pix_fmt:v:0 yuvj420p -q:v:0 6 -c:v:1 copy -disposition:v:1 attached_pic \
    -fflags +bitexact -flags:a +bitexact -flags:v +bitexact -f mp4 "$work/book.m4b"
LC_ALL=C sed 's/chap\x00\x00\x00\x04/chap\x00\x00\x00\x02/g' "$work/book.m4b" \
    >"Audiobooks/The Lantern Keeper.m4b"

# Films of every kind. None has a cover.
film "Movies/Paper Boats.mp4" 200 5 -metadata title="Paper Boats" -metadata date=2020 \
    -metadata genre=Drama
film "TV Shows/Tidewater/Season 1/Tidewater - S01E01 - Arrival.mp4" 240 3
film "TV Shows/Tidewater/Season 1/Tidewater - S01E02 - Low Water.mp4" 260 3
film "Music Videos/Lumen Field - Lamp Room.m4v" 280 3 -metadata title="Lamp Room" \
    -metadata artist="Lumen Field" -metadata genre=Folk
film "Home Videos/IMG_0001.mov" 300 2
film "Movies/Northern Ferry.mkv" 320 2 -metadata title="Northern Ferry"
tone "TesselU/Tides and Currents/Lecture 1.m4a" 160 3 -c:a aac -b:a 32k \
    -metadata title="Lecture 1: What moves the sea" -metadata album="Tides and Currents"

mkdir -p Playlists
cat >"Playlists/Évening mix.m3u8" <<'PLAYLIST'
#EXTM3U
#PLAYLIST:Évening mix
#EXTINF:3,Ørnevik Kvartett - Søndag
../Music/Ørnevik Kvartett/Nordlys/02 Søndag.m4a
../Music/Lumen Field/Harbour Lights/03 Lamp Room.mp3
../Music/Kettle/Odds/Whistle.flac
../Music/Ørnevik Kvartett/Nordlys/02 Søndag.m4a
PLAYLIST
cat >"Playlists/Road trip.xspf" <<'PLAYLIST'
<?xml version="1.0" encoding="UTF-8"?>
<playlist version="1" xmlns="http://xspf.org/ns/0/">
  <title>Road trip ☀</title>
  <trackList>
    <track><location>../Music/Lumen%20Field/Harbour%20Lights/01%20First%20Ferry.mp3</location></track>
    <track><location>../Music/%C3%98rnevik%20Kvartett/Nordlys/03%20%C3%84lvdans.m4a</location></track>
    <track><location>../Music/Kettle/Odds/Steam.ogg</location></track>
  </trackList>
</playlist>
PLAYLIST
