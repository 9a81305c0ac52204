/* Plays 1000 frames of silence at speed 0.8 and wants 1250 of them. */
#include <velora/vsp_c.h>

int main(void)
{
    static float in[1000][2], out[2000][2];
    velora_stream* stream;
    int64_t got;
    if (velora_stream_create(&stream, 48000, 2, VELORA_FLOAT, VELORA_PITCH_KEEP) != VELORA_OK)
        return 1;
    velora_stream_set_speed(stream, 0.8);
    got = velora_stream_process(stream, in, 1000, out, 2000);
    got += velora_stream_flush(stream, out, 2000);
    velora_stream_destroy(stream);
    return got == 1250 ? 0 : 1;
}
