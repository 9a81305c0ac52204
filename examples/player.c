/* Plays raw audio (16-bit stereo, 44100 Hz) through buffers of 512 frames, as a sound card asks for
 * them, faster and faster:  player < in.raw > out.raw */
#include <stdio.h>
#include <velora/vsp_c.h>

static int16_t in[65536][2], out[512][2];

int main(void)
{
    velora_stream* stream;
    int error = velora_stream_create(&stream, 44100, 2, VELORA_INT16, VELORA_PITCH_KEEP);
    double speed = 0.5;
    int64_t got = 512;
    while (!error && got == 512) {
        error = velora_stream_set_speed(stream, speed < 2.0 ? speed += 0.001 : speed);
        int64_t wanted = velora_stream_input_frames_for(stream, 512);
        int64_t frames = (int64_t)fread(in, 4, (size_t)wanted, stdin);
        got = velora_stream_process(stream, in, frames, out, 512);
        if (frames < wanted) /* the end: what is still inside fills the last buffers */
            got += velora_stream_flush(stream, out + got, 512 - got);
        fwrite(out, 4, (size_t)got, stdout);
        fprintf(stderr, "\r%.3f s",
                (double)velora_stream_media_frame_of(stream, velora_stream_output_frames(stream)) /
                    44100.0);
    }
    if (error)
        fprintf(stderr, "%s\n", velora_error_text(error));
    velora_stream_destroy(stream);
    return error ? 1 : 0;
}
