"""ASF files: see tests/support/media_files.py."""

from media_files import noise, tone, video

EXTENSION = "asf"
LARGE = [*noise(), *tone(8), "-c:v", "wmv2", "-b:v", "8M", "-g", "50", "-c:a", "wmav2", "-b:a", "128k"]
SMALL = {
    "wmv2_wma2.wmv": [*video(4), *tone(4), "-c:v", "wmv2", "-g", "12", "-c:a", "wmav2", "-b:a", "128k"],
    "wma2.wma": [*tone(4), "-c:a", "wmav2", "-b:a", "128k"],
}
