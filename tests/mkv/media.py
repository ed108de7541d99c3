"""Matroska files: see tests/support/media_files.py."""

from media_files import noise, tone, video

EXTENSION = "mkv"
LARGE = [*noise(), *tone(8), "-c:v", "libx264", "-preset", "ultrafast", "-b:v", "8M", "-g", "50",
         "-c:a", "aac", "-b:a", "128k"]
SMALL = {
    "mpeg4_mp3.mkv": [*video(4), *tone(4), "-c:v", "mpeg4", "-g", "12", "-bf", "0",
                      "-c:a", "libmp3lame", "-b:a", "128k"],
}
