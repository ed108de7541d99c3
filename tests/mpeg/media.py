"""MPEG files: see tests/support/media_files.py."""

from media_files import noise, tone, video

H264 = ["-c:v", "libx264", "-preset", "ultrafast", "-g", "12"]

EXTENSION = "ts"
LARGE = [*noise(), *tone(8), "-c:v", "libx264", "-preset", "ultrafast", "-b:v", "8M", "-g", "50",
         "-c:a", "aac", "-b:a", "128k"]
SMALL = {
    "h264_aac.ts": [*video(4), *tone(4), *H264, "-c:a", "aac"],
    "mpeg2_ac3.m2ts": [*video(4), *tone(4), "-c:v", "mpeg2video", "-g", "12", "-c:a", "ac3"],
    "mpeg2_ac3.vob": [*video(4), *tone(4, rate=48000), "-c:v", "mpeg2video", "-g", "12", "-c:a", "ac3"],
    "mpeg1_mp2.mpg": [*video(4), *tone(4), "-c:v", "mpeg1video", "-g", "12", "-c:a", "mp2"],
}
