"""AAC files: see tests/support/media_files.py."""

from media_files import tone

EXTENSION = "aac"
LARGE = ["-f", "lavfi", "-i", "anoisesrc=duration=30:color=pink:amplitude=0.3", "-ac", "2",
         "-c:a", "aac", "-b:a", "128k"]
SMALL = {
    "stereo.aac": [*tone(4), "-c:a", "aac", "-ac", "2"],
}
