"""MP4 files: see tests/support/media_files.py."""

from media_files import noise, tone, video

EXTENSION = "mp4"
LARGE = [*noise(), *tone(8), "-c:v", "libx264", "-preset", "ultrafast", "-b:v", "8M", "-g", "50",
         "-c:a", "aac", "-b:a", "128k"]
SMALL = {
    "h264_aac.mp4": [*video(4), *tone(4), "-c:v", "libx264", "-g", "12", "-bf", "2", "-c:a", "aac", "-b:a", "128k"],
    "mjpeg_twos.mov": [*video(3, "64x48"), *tone(3), "-c:v", "mjpeg", "-c:a", "pcm_s16be"],
    "mpeg4_mp3.mp4": [*video(4), *tone(4), "-c:v", "mpeg4", "-g", "12", "-c:a", "libmp3lame", "-b:a", "128k"],
}
