"""What scripts/quality measures, on sounds whose figures are known beforehand."""

import tempfile
import unittest
from pathlib import Path

import numpy as np
from quality_figures import attacks, levels, spectra, speech, stereo, tones
from quality_figures.courses import Course
from quality_figures.figures import Best

RATE = 44100


def noise(seconds: float, channels: int = 2, seed: int = 1) -> spectra.Sound:
    """White noise at -20 dBFS."""
    shape = (round(seconds * RATE), channels)
    return 0.1 * np.random.default_rng(seed).standard_normal(shape)


def sine(frequency: float, seconds: float, level: float = 1.0) -> spectra.Sound:
    """A sine in one channel."""
    time = np.arange(round(seconds * RATE)) / RATE
    return level * np.sin(2 * np.pi * frequency * time)[:, None]


def syllables(seconds: float, speed: float) -> spectra.Sound:
    """Tones that swell at uneven times, as they would sound exactly at `speed`."""
    time = np.arange(round(seconds / speed * RATE)) / RATE
    sound = np.zeros(len(time))
    for count, frequency in enumerate((310.0, 790.0, 1900.0, 3300.0)):
        swell = np.sin(2 * np.pi * (0.4 + 0.27 * count) * time * speed + count)
        sound += 0.2 * np.exp(1.5 * swell) * np.sin(2 * np.pi * frequency * time)
    return 0.2 * np.stack([sound, sound], 1)


def delayed(sound: spectra.Sound, seconds: float) -> spectra.Sound:
    """The sound later, as long as before."""
    frames = round(seconds * RATE)
    return np.concatenate([np.zeros((frames, sound.shape[1])), sound])[: len(sound)]


def pair(original: spectra.Sound, stretched: spectra.Sound, speed: float = 1.0) -> spectra.Pair:
    """Spectra at mapped times, with no delay made up for."""
    return spectra.Comparison(original, stretched, speed, RATE).pair(0.0)


class Spectra(unittest.TestCase):
    def test_same_sound_has_no_error(self):
        both = pair(noise(2), noise(2))
        self.assertLess(spectra.spectral_convergence(both), -60)
        self.assertLess(spectra.log_spectral_distance(both), 0.001)

    def test_exact_stretch_is_found_at_mapped_times(self):
        for speed in (0.5, 0.8, 1.6, 3.0):
            exact = pair(syllables(8, 1), syllables(8, speed), speed)
            self.assertLess(spectra.spectral_convergence(exact), -35, speed)
            wrong = pair(syllables(8, 1), syllables(8, 1.1 * speed), speed)
            self.assertGreater(spectra.spectral_convergence(wrong), -15, speed)

    def test_level_counts_in_the_distance_alone(self):
        softer = pair(noise(2), 0.5 * noise(2))
        self.assertLess(spectra.spectral_convergence(softer), -60)
        self.assertAlmostEqual(spectra.log_spectral_distance(softer), 6.02, delta=0.05)

    def test_channels_that_cancel_are_lost_in_the_mono_sum_alone(self):
        sound = np.repeat(noise(2, 1), 2, 1)
        sound[:, 1] += noise(2, 1, seed=2)[:, 0]
        turned = pair(sound, sound * [1, -1])
        self.assertLess(spectra.spectral_convergence(turned), -60)
        self.assertGreater(spectra.spectral_convergence(turned.mono()), -6)

    def test_lateness_is_measured_also_beyond_the_usual_search(self):
        for milliseconds in (0, 6, -4, 16, 34):
            sound = noise(3)
            late = delayed(sound, milliseconds / 1000) if milliseconds >= 0 else sound
            early = sound if milliseconds >= 0 else delayed(sound, -milliseconds / 1000)
            found = spectra.Comparison(early, late, 1.0, RATE).lateness()
            self.assertAlmostEqual(found, milliseconds / 1000, delta=0.0001)


class Levels(unittest.TestCase):
    def test_loudness_of_the_standards_reference_tone(self):
        # A full-scale sine of 997 Hz in one of two channels reads -3.01 LKFS; the standard takes
        # 0.691 away from the weighted power, which no change of loudness sees.
        sound = np.concatenate([sine(997, 5), np.zeros((5 * RATE, 1))], 1)
        self.assertAlmostEqual(levels.loudness(sound, RATE), -3.01 + 0.691, delta=0.02)

    def test_known_change_of_level(self):
        change = levels.loudness_change(noise(2), 0.5 * noise(2), RATE)
        self.assertAlmostEqual(change, -6.02, delta=0.01)

    def test_share_of_clipped_samples(self):
        sound = np.zeros((1000, 2))
        sound[:5] = [1.0, -1.0]
        sound[5:9] = 32766 / 32768
        self.assertAlmostEqual(levels.clipped_share(sound), 0.5)


class Stereo(unittest.TestCase):
    def test_phase_between_channels(self):
        sound = noise(3)
        swapped = pair(sound, sound[:, ::-1])
        self.assertLess(stereo.phase_error(pair(sound, 0.3 * sound)), 1e-3)
        self.assertAlmostEqual(stereo.phase_error(pair(sound, sound * [1, -1])), 180, delta=1e-3)
        self.assertAlmostEqual(stereo.phase_error(swapped), 90, delta=3)

    def test_image(self):
        left, other = noise(3, 1), noise(3, 1, seed=2)
        middle = stereo.image(np.concatenate([left, left], 1))
        wide = stereo.image(np.concatenate([left, other], 1))
        left_sided = stereo.image(np.concatenate([2 * left, left], 1))
        self.assertAlmostEqual(middle.correlation, 1, delta=1e-6)
        self.assertAlmostEqual(middle.mono, 0, delta=1e-3)
        self.assertAlmostEqual(wide.correlation, 0, delta=0.02)
        self.assertAlmostEqual(wide.mono, -3.01, delta=0.1)
        self.assertAlmostEqual(left_sided.difference, 6.02, delta=0.01)


class Speech(unittest.TestCase):
    def test_intelligibility_falls_with_noise(self):
        clear = syllables(6, 1)
        by_noise = [
            speech.intelligibility(clear, clear + gain * noise(6), 1.0, RATE, 0.0)
            for gain in (0.0, 0.05, 0.5, 5.0)
        ]
        self.assertGreater(by_noise[0], 0.999)
        self.assertEqual(by_noise, sorted(by_noise, reverse=True))
        self.assertLess(by_noise[-1], 0.5)

    def test_intelligibility_at_mapped_times(self):
        slow = syllables(6, 0.7)
        right = speech.intelligibility(syllables(6, 1), slow, 0.7, RATE, 0.0)
        wrong = speech.intelligibility(syllables(6, 1), slow, 0.9, RATE, 0.0)
        self.assertGreater(right, 0.95)
        self.assertLess(wrong, right - 0.2)


class Attacks(unittest.TestCase):
    onsets = np.arange(0.5, 7.9, 0.4)
    speed = 0.8

    def clicks(self, times, level=1.0):
        sound = np.zeros((12 * RATE, 1))
        burst = np.exp(-np.arange(RATE // 50) / (0.002 * RATE))[:, None]
        for time in times:
            start = round(time * RATE)
            sound[start : start + len(burst)] += level * burst
        return sound

    def measure(self, stretched):
        original = self.clicks(self.onsets)
        return attacks.measure_attacks(original, stretched, self.speed, RATE, self.onsets)

    def test_faithful_attacks(self):
        found = self.measure(self.clicks(self.onsets / self.speed))
        self.assertAlmostEqual(found.position, 0, delta=0.05)
        self.assertAlmostEqual(found.jitter, 0, delta=0.05)
        self.assertAlmostEqual(found.level, 0, delta=0.05)
        self.assertAlmostEqual(found.pre_echo, -60, delta=0.01)
        self.assertEqual(found.lost, 0)

    def test_late_uneven_and_soft_attacks(self):
        moves = 0.003 + 0.002 * (-1) ** np.arange(len(self.onsets))
        found = self.measure(self.clicks(self.onsets / self.speed + moves, level=0.5))
        self.assertAlmostEqual(found.position, 3, delta=0.2)
        self.assertAlmostEqual(found.jitter, 2, delta=0.1)
        self.assertAlmostEqual(found.level, -6.02, delta=0.1)

    def test_blurred_attack_sounds_where_it_reaches_half_its_amplitude(self):
        stretched = np.zeros((12 * RATE, 1))
        ramp = np.linspace(0, 1, round(0.024 * RATE))[:, None]
        for time in self.onsets / self.speed:
            start = round(time * RATE)
            stretched[start : start + len(ramp)] = ramp
        self.assertAlmostEqual(self.measure(stretched).position, 12, delta=1)

    def test_echo_before_the_attack(self):
        times = self.onsets / self.speed
        found = self.measure(self.clicks(times) + self.clicks(times - 0.02, level=0.1))
        # A click 20 dB softer, spread over 30 ms instead of the attack's 10.
        self.assertAlmostEqual(found.pre_echo, -20 + 10 * np.log10(10 / 30), delta=0.5)

    def test_lost_attacks_count_as_lost_alone(self):
        kept = np.delete(self.onsets, [3, 8]) / self.speed
        found = self.measure(self.clicks(kept))
        self.assertAlmostEqual(found.lost, 100 * 2 / len(self.onsets), delta=0.01)
        self.assertAlmostEqual(found.level, 0, delta=0.05)

    def test_onsets_are_found(self):
        found = attacks.find_onsets(self.clicks(self.onsets) + 0.001 * noise(12, 1), RATE)
        self.assertEqual(len(found), len(self.onsets))
        self.assertLess(np.abs(found - self.onsets).max(), 0.005)


class Tones(unittest.TestCase):
    def test_pitch_error_in_cents(self):
        sound = sine(440 * 2 ** (3 / 1200), 3) + sine(1000, 3)
        self.assertAlmostEqual(
            tones.pitch_error(sound, RATE, np.array([440.0, 1000.0])), 3, delta=0.01
        )

    def test_signal_to_noise(self):
        # White noise 40 dB below a tone, and a second tone 30 dB below it.
        hiss = noise(6, 1) / 0.1 * 0.001 * np.sqrt(0.5) * 10 ** (-40 / 20)
        quiet = sine(997, 6, 0.001)
        self.assertAlmostEqual(tones.signal_to_noise(quiet + hiss, RATE, 997), 40, delta=0.2)
        second = sine(1997, 6, 0.001 * 10 ** (-30 / 20))
        self.assertAlmostEqual(tones.signal_to_noise(quiet + second, RATE, 997), 30, delta=0.1)

    def test_dips_at_changes(self):
        changes = np.arange(1.0, 9.5, 1.0)
        time = np.arange(10 * RATE) / RATE
        gain = np.ones(len(time))
        for change, depth in zip(changes, (2, 2, 2, 2, 2, 2, 2, 20, 20)):
            gain[np.abs(time - change) < 0.05] = 10 ** (-depth / 20)
        sound = (sine(300, 10) + sine(900, 10)) * gain[:, None]
        found = tones.dips(sound, RATE, np.array([300.0, 900.0]), changes)
        self.assertAlmostEqual(found.median, 2, delta=0.1)
        self.assertAlmostEqual(found.worst, 20, delta=0.5)


class Reporting(unittest.TestCase):
    def test_course_maps_the_same_times_for_every_stretcher(self):
        course = Course((1.0, 0.5, 2.0), 2.0)
        np.testing.assert_allclose(course.media_times(), [0, 2, 3, 7])
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "map"
            course.time_map(path, 1000)
            self.assertEqual(path.read_text(), "2000 2000\n3000 4000\n7000 6000\n")
            course.speed_map(path)
            self.assertEqual(path.read_text(), "0.000000 1.0\n2.000000 0.5\n3.000000 2.0\n")

    def test_values_of_several_clips(self):
        self.assertEqual(Best.ZERO.of_several([1.0, -3.0, 2.0]), -3.0)
        self.assertEqual(Best.LOW.of_several([1.0, 3.0]), 2.0)
        self.assertLess(Best.HIGH.badness(0.9), Best.HIGH.badness(0.8))
        self.assertLess(Best.ZERO.badness(-0.1), Best.ZERO.badness(0.2))


if __name__ == "__main__":
    unittest.main()
