"""Ogg files: see tests/support/media_files.py."""

from media_files import noise, tone, video

EXTENSION = "ogv"
LARGE = [*noise(), *tone(8), "-c:v", "libtheora", "-b:v", "8M", "-g", "50", "-c:a", "libvorbis", "-b:a", "128k"]
SMALL = {
    "theora_vorbis.ogv": [*video(4), *tone(4), "-c:v", "libtheora", "-g", "12", "-c:a", "libvorbis"],
    "vorbis.ogg": [*tone(4), "-c:a", "libvorbis"],
}
