#!/usr/bin/env python3
"""Writes the demo clip's score as a MIDI file. Usage: assets/score.py OUT.mid

Five bars in D major (I, vi, ii, V, I), 100 beats a minute, so a bar lasts 2.4 s. The parts are there to
give a change of speed something to go wrong with: drum hits that could smear or double, held chords that
could waver, low bass notes that a band limit could lose, a melody whose pitch must not move. Every note
sits exactly on a sixteenth, so the beat of a processed version can be measured. The melody plays bar 1
alone and then only answers at the ends of bars, leaving room for the voice.
"""
import struct
import sys

TICKS = 480  # a beat
BEATS_PER_MINUTE = 100
BAR = 4  # beats
CHORDS_PART, BASS_PART, MELODY_PART, CYMBALS, DRUMS = 0, 1, 2, 3, 9  # MIDI channels

KICK, SNARE, CLOSED_HAT, OPEN_HAT, CRASH = 36, 38, 42, 46, 49
LOW_TOM, MID_TOM, HIGH_TOM = 45, 47, 50

# Channel: (bank, General MIDI program, level, pan, reverb). The last three go from 0 to 127, pan 64 is the
# middle, and bank 128 holds the drum kits.
MIXER = {
    CHORDS_PART: (0, 4, 116, 24, 45),    # electric piano, left
    BASS_PART: (0, 33, 92, 64, 5),       # finger bass
    MELODY_PART: (0, 24, 127, 100, 55),  # nylon guitar, right
    CYMBALS: (128, 0, 127, 88, 12),      # a channel of their own, to stand right of the drums
    DRUMS: (128, 0, 112, 64, 12),        # the low drums, in the middle
}

CHORDS = [
    (54, 57, 61, 64),  # D major 9
    (54, 57, 59, 62),  # B minor 7
    (55, 59, 62, 66),  # E minor 9
    (55, 59, 61, 66),  # A 13
    (54, 59, 64, 69),  # D 6/9
]

# Per bar: root, fifth, and the half step that leads to the next root.
BASS = [(38, 45, 37), (35, 42, 39), (40, 35, 32), (33, 40, 37)]

# (bar, beat, beats held, key)
MELODY = [
    (0, 0, 0.5, 69), (0, 0.5, 0.5, 73), (0, 1, 0.75, 76), (0, 1.75, 0.75, 78),
    (0, 2.5, 0.5, 76), (0, 3, 0.5, 73), (0, 3.5, 0.5, 74),
    (1, 3, 0.5, 71), (1, 3.5, 0.5, 74),
    (2, 3, 0.25, 74), (2, 3.25, 0.25, 76), (2, 3.5, 0.5, 78),
    (3, 3, 0.5, 79), (3, 3.5, 0.5, 76),
    (4, 0, 3.5, 78), (4, 0.5, 3, 81), (4, 1, 2.5, 86),
]


def notes():
    """All notes as (channel, start in beats, beats held, key, velocity)."""
    for bar, chord in enumerate(CHORDS[:-1]):
        behind_the_voice = 0 if bar == 0 else 14
        for beat, held, velocity in ((0, 1.25, 78), (1.5, 0.4, 64), (2.5, 1.25, 70)):
            for key in chord:
                yield CHORDS_PART, bar * BAR + beat, held, key, velocity - behind_the_voice
    for bar, (root, fifth, lead) in enumerate(BASS):
        for beat, held, key in ((0, 1.25, root), (1.5, 0.75, root), (2.5, 0.75, fifth), (3.5, 0.45, lead)):
            yield BASS_PART, bar * BAR + beat, held, key, 96
    for bar, beat, held, key in MELODY:
        yield MELODY_PART, bar * BAR + beat, held, key, 110

    def hit(bar, beat, key, velocity):
        channel = CYMBALS if key in (CLOSED_HAT, OPEN_HAT, CRASH) else DRUMS
        return channel, bar * BAR + beat, 0.2, key, velocity

    for bar in range(4):
        fill = bar == 3
        for beat in (0, 1.75, 2.5):
            yield hit(bar, beat, KICK, 112)
        for beat in (1,) if fill else (1, 3):
            yield hit(bar, beat, SNARE, 116)
        for eighth in range(6 if fill else 7):
            yield hit(bar, eighth / 2, CLOSED_HAT, 70 if eighth % 2 else 88)
        if fill:
            for beat, drum in ((3, SNARE), (3.25, HIGH_TOM), (3.5, MID_TOM), (3.75, LOW_TOM)):
                yield hit(bar, beat, drum, 106)
        else:
            yield hit(bar, 3.5, OPEN_HAT, 74)

    last = len(BASS)
    for key in CHORDS[-1]:
        yield CHORDS_PART, last * BAR, 3.5, key, 76
    yield BASS_PART, last * BAR, 3.5, 38, 98
    yield hit(last, 0, KICK, 112)
    yield hit(last, 0, CRASH, 92)


def variable_length(value):
    """A MIDI delta time: seven bits a byte, the high bit set on all but the last."""
    data = [value & 0x7F]
    while value := value >> 7:
        data.insert(0, value & 0x7F | 0x80)
    return bytes(data)


def track():
    events = [(0, bytes([0xFF, 0x51, 3]) + (60_000_000 // BEATS_PER_MINUTE).to_bytes(3, "big"))]
    for channel, (bank, program, level, pan, reverb) in MIXER.items():
        for controller, value in ((0, bank >> 7), (32, bank & 0x7F), (7, level), (10, pan), (91, reverb)):
            events.append((0, bytes([0xB0 | channel, controller, value])))
        events.append((0, bytes([0xC0 | channel, program])))
    for channel, start, held, key, velocity in notes():
        events.append((round(start * TICKS), bytes([0x90 | channel, key, velocity])))
        events.append((round((start + held) * TICKS), bytes([0x80 | channel, key, 0])))
    # One bar more than is kept, so the last chord rings until the mix fades it.
    events.append(((len(CHORDS) + 1) * BAR * TICKS, bytes([0xFF, 0x2F, 0])))

    data, now = b"", 0
    # At the same tick a note ends before the next begins: else a repeated key would be cut short.
    for tick, event in sorted(events, key=lambda e: (e[0], e[1][0] >> 4 == 9)):
        data += variable_length(tick - now) + event
        now = tick
    return data


with open(sys.argv[1], "wb") as out:
    score = track()
    out.write(b"MThd" + struct.pack(">IHHH", 6, 0, 1, TICKS))
    out.write(b"MTrk" + struct.pack(">I", len(score)) + score)
