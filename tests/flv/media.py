"""FLV files: see tests/support/media_files.py."""

from media_files import noise, tone, video

EXTENSION = "flv"
LARGE = [*noise(), *tone(8), "-c:v", "libx264", "-preset", "ultrafast", "-b:v", "8M", "-g", "50",
         "-c:a", "aac", "-b:a", "128k"]
SMALL = {
    "sorenson_mp3.flv": [*video(4), *tone(4), "-c:v", "flv", "-g", "12", "-c:a", "libmp3lame", "-b:a", "128k"],
    "h264_aac.flv": [*video(4), *tone(4), "-c:v", "libx264", "-preset", "ultrafast", "-bf", "2", "-g", "12",
                     "-c:a", "aac"],
}
