"""MP3 files: see tests/support/media_files.py."""

from media_files import tone

EXTENSION = "mp3"
LARGE = ["-f", "lavfi", "-i", "anoisesrc=duration=30:color=pink:amplitude=0.3", "-ac", "2",
         "-c:a", "libmp3lame", "-b:a", "128k"]
SMALL = {
    "vbr.mp3": [*tone(4), "-c:a", "libmp3lame", "-q:a", "4", "-ac", "2"],
    "cbr.mp3": [*tone(4, rate=22050), "-c:a", "libmp3lame", "-b:a", "48k", "-write_xing", "0"],
}
