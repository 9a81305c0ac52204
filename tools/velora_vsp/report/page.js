"use strict";
// Draws what velora-vsp collected. All times on the x axes are seconds of the input.

const data = JSON.parse(document.getElementById("data").textContent);
const figures = data.figures;
const byId = id => document.getElementById(id);
const colour = name => getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
const isDark = matchMedia("(prefers-color-scheme: dark)");

function make(tag, text, className)
{
    const element = document.createElement(tag);
    if (text !== undefined)
        element.textContent = text;
    if (className)
        element.className = className;
    return element;
}

// Nothing is neither more nor less.
function signed(value, digits)
{
    const text = Math.abs(value).toFixed(digits);
    return (Number(text) === 0 ? "" : value < 0 ? "\u2212" : "+") + text;
}

const hertz = value => value < 1000 ? Math.round(value) + " Hz" : +(value / 1000).toPrecision(2) + " kHz";

// 1:02.5, with as many decimals as are asked for.
function clock(seconds, digits)
{
    const unit = 10 ** digits;
    const whole = Math.round(Math.max(seconds, 0) * unit);
    const minutes = Math.floor(whole / unit / 60);
    const rest = (whole / unit - minutes * 60).toFixed(digits).padStart(digits ? digits + 3 : 2, "0");
    const hours = Math.floor(minutes / 60);
    return hours ? hours + ":" + String(minutes % 60).padStart(2, "0") + ":" + rest : minutes + ":" + rest;
}

// ---- What was done ----

function showSummary()
{
    const name = path => path === "-" ? "standard input" : path.split("/").pop();
    const speed = figures.map !== undefined ? "at changing speeds" : "at speed " + +figures.speed.toPrecision(6);
    byId("title").textContent = name(figures.input) + " " + speed;
    document.title = byId("title").textContent;
    byId("subtitle").textContent =
        "Written to " + (figures.output === "-" ? "standard output" : figures.output);
    const tile = (label, value, more) => {
        const box = make("div");
        box.append(make("dt", label));
        const text = make("dd", value + " ");
        text.append(make("small", more));
        box.append(text);
        byId("tiles").append(box);
    };
    if (!figures.rate)
        return;
    tile("In", clock(figures.framesIn / figures.rate, 1), figures.rate + " Hz");
    tile("Out", clock(figures.framesOut / figures.rate, 1),
        figures.channels + (figures.channels === 1 ? " channel" : " channels"));
    tile("Off the exact length", signed(figures.difference, 1), "frames");
    tile("Made in", figures.seconds.toFixed(1) + " s", "= " + figures.realTimeFactor.toFixed(0) + " × real time");
    if (figures.pauses)
        tile("Pauses made faster", String(figures.pauses), figures.saved.toFixed(1) + " s saved");
}

function showFigures()
{
    const meaning = {
        schema: "Version of these names", input: "File that went in", output: "File that came out",
        format: "Samples on the way", rate: "Frames in a second", channels: "Channels", speed: "Speed",
        map: "File of speeds", framesIn: "Frames in", framesOut: "Frames out",
        framesIdeal: "Exact length in frames", difference: "Frames out beyond that",
        seconds: "Seconds that it took", realTimeFactor: "Seconds of output made in one",
        clipped: "Samples at full scale", pauses: "Pauses that went at their own speed",
        saved: "Seconds saved by that",
    };
    const table = byId("figures");
    for (const [key, value] of Object.entries(figures)) {
        const row = table.insertRow();
        row.insertCell().textContent = meaning[key] || key;
        const cell = row.insertCell();
        cell.style.textAlign = "left";
        cell.append(make("code", key));
        const isNumber = typeof value === "number";
        row.append(make("td", isNumber ? +value.toPrecision(9) : value, isNumber ? "number" : undefined));
    }
    byId("json").textContent = JSON.stringify(figures);
}

// ---- Listening ----

const duration = data.columns ? data.in.seconds : 0;
const end = (data.start || 0) + duration;

// Where the input is when so many seconds of the output have been heard, and the other way round.
function between(xs, ys, x)
{
    let low = 0;
    let high = xs.length - 1;
    while (high - low > 1) {
        const middle = (low + high) >> 1;
        if (xs[middle] <= x)
            low = middle;
        else
            high = middle;
    }
    const part = xs[high] > xs[low] ? (x - xs[low]) / (xs[high] - xs[low]) : 0;
    return ys[low] + Math.min(Math.max(part, 0), 1) * (ys[high] - ys[low]);
}
const edges = Array.from({length: data.columns + 1}, (_, n) => n / Math.max(data.columns, 1) * duration);
const mediaOf = (side, time) => data.start + (side === "in" ? time : between(data.outputAt, edges, time));
const timeOf = (side, media) =>
    side === "in" ? media - data.start : between(edges, data.outputAt, media - data.start);

const players = {};
let place = data.start || 0; // of the one that plays, or played last

function showPlayers()
{
    const missing = ["in", "out"].filter(side => !data[side].sound);
    const isWhole = data.heard >= duration - 1e-6;
    byId("sounds-note").textContent = missing.length
        ? "This build of FFmpeg's libraries has no Opus or MP3 encoder for these channels, so there is nothing to hear here."
        : (isWhole ? "Both sounds are in this page" : "The first " + clock(data.heard, 0) +
            " of the music is in this page") +
          ", compressed. One stops the other and goes on at the same moment of the music.";
    if (missing.length)
        return;
    for (const side of ["in", "out"]) {
        const box = make("div");
        box.append(make("div", side === "in" ? "Input" : "Output", "label " + side));
        const audio = make("audio");
        audio.controls = true;
        audio.setAttribute("aria-label", side === "in" ? "Input" : "Output");
        audio.src = data[side].sound;
        box.append(audio);
        byId("players").append(box);
        players[side] = audio;
        const other = side === "in" ? "out" : "in";
        audio.addEventListener("play", () => {
            if (!players[other].paused) {
                players[other].pause();
                audio.currentTime = timeOf(side, mediaOf(other, players[other].currentTime));
            }
            followPlayer(side);
        });
        audio.addEventListener("seeked", () => showPlace(mediaOf(side, audio.currentTime)));
    }
}

function followPlayer(side)
{
    showPlace(mediaOf(side, players[side].currentTime));
    if (!players[side].paused)
        requestAnimationFrame(() => followPlayer(side));
}

function goTo(media)
{
    for (const side of Object.keys(players))
        players[side].currentTime = timeOf(side, Math.min(media, data.start + data.heard));
    showPlace(media);
}

function showPlace(media)
{
    place = media;
    const drawn = Math.min(Math.max(media, middles[0]), middles[middles.length - 1]);
    for (const plot of plots) {
        if (!plot.playhead)
            continue;
        const {min, max} = plot.scales.x;
        plot.playhead.hidden = drawn < min || drawn > max;
        plot.playhead.style.left = plot.valToPos(drawn, "x") + "px";
    }
}

// ---- Drawings over time ----

let plots = [];
const kLeft = 56; // CSS pixels beside all drawings, so that they stand in line
const middles = edges.slice(0, -1).map((edge, n) => (data.start || 0) + (edge + edges[n + 1]) / 2);

const axis = more => Object.assign({
    stroke: colour("soft"),
    grid: {stroke: colour("grid"), width: 1},
    ticks: {stroke: colour("line"), width: 1, size: 4},
    font: "12px system-ui, sans-serif",
    gap: 4,
}, more);

function timeAxis(isShown, hasGrid)
{
    const steps = [0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600,
        900, 1800, 3600, 7200, 14400, 36000];
    return axis({
        incrs: steps,
        space: 70,
        size: isShown ? 26 : 0,
        values: (plot, times, _, __, step) =>
            times.map(time => isShown ? clock(time, step < 0.01 ? 3 : step < 0.1 ? 2 : step < 1 ? 1 : 0) : ""),
        ticks: {show: isShown, stroke: colour("line"), width: 1, size: 4},
        grid: {show: hasGrid, stroke: colour("grid"), width: 1},
    });
}

function drawing(height, parts, values, isLast)
{
    const options = Object.assign({
        width: byId("plots").clientWidth,
        height: height + (isLast ? 26 : 0),
        padding: [4, 20, isLast ? 0 : 4, 0],
        legend: {show: false},
        cursor: {
            sync: {key: "media", scales: ["x", null], setSeries: false},
            drag: {x: true, y: false},
            y: false,
            points: {show: false},
        },
    }, parts);
    options.scales = Object.assign({x: {time: false, range: (_, low, high) => [low, high]}}, parts.scales);
    options.axes = [timeAxis(isLast, !parts.isOpaque), parts.valueAxis];
    options.hooks = Object.assign({
        setCursor: [plot => showReadout(plot.cursor.left >= 0 ? plot.posToVal(plot.cursor.left, "x") : null)],
        setScale: [(plot, key) => key === "x" && plot.playhead && showPlace(place)],
    }, parts.hooks);
    const plot = new uPlot(options, values, byId("plots"));
    plot.root.setAttribute("role", "img");
    plot.root.setAttribute("aria-label", plot.root.previousElementSibling.textContent);
    plot.playhead = make("div", undefined, "playhead");
    plot.over.append(plot.playhead);
    plot.over.addEventListener("click", () => {
        if (plot.select.width === 0 && plot.cursor.left >= 0)
            goTo(plot.posToVal(plot.cursor.left, "x"));
    });
    plots.push(plot);
}

function showReadout(media)
{
    const line = byId("readout");
    if (media === null || media < data.start || media > end) {
        line.textContent = "Point at a picture to read it.";
        return;
    }
    const column = Math.min(Math.floor((media - data.start) / duration * data.columns), data.columns - 1);
    const level = side => {
        const rms = data[side].rms[column];
        return rms > 0 ? signed(20 * Math.log10(rms), 1) + " dB" : "silence";
    };
    line.textContent = clock(media, 2) + " of the music, heard at " + clock(timeOf("out", media), 2) + " · speed " +
        +data.speeds[column].toPrecision(4) + " · input " + level("in") + ", output " + level("out");
}

function heading(text, className)
{
    byId("plots").append(make("div", text, "label " + className));
}

function drawWave(side)
{
    const sound = data[side];
    const most = Math.max(...data.in.high, ...data.out.high, ...data.in.low.map(v => -v), ...data.out.low.map(v => -v),
        0.001);
    const stroke = colour(side);
    const faint = stroke + "73";
    heading((side === "in" ? "Input" : "Output") + ": waveform", side);
    drawing(92, {
        scales: {y: {range: [-most * 1.04, most * 1.04]}},
        valueAxis: axis({
            size: kLeft,
            splits: () => [-most, 0, most],
            values: (_, ticks) => ticks.map(v => v ? signed(20 * Math.log10(Math.abs(v)), 0) + " dB" : "\u2212∞"),
        }),
        series: [{}, {stroke: faint, width: 1, points: {show: false}}, {stroke: faint, width: 1, points: {show: false}},
            {width: 0, points: {show: false}}, {width: 0, points: {show: false}}],
        bands: [{series: [1, 2], fill: faint}, {series: [3, 4], fill: stroke}],
    }, [middles, sound.high, sound.low, sound.rms, sound.rms.map(value => -value)], false);
}

// Quiet is the colour of the page.
const ramps = {
    light: ["#ffffff", "#dbe6f4", "#9fc0e3", "#5d8fc9", "#3c5aa6", "#3a2b6e", "#16091f"],
    dark: ["#181c22", "#1d2b4d", "#2f4592", "#6c4aa8", "#c1527f", "#f2915a", "#fdf2b0"],
};

function rampTable()
{
    const stops = ramps[isDark.matches ? "dark" : "light"].map(code =>
        [1, 3, 5].map(at => parseInt(code.slice(at, at + 2), 16)));
    return Array.from({length: 256}, (_, value) => {
        const at = value / 255 * (stops.length - 1);
        const below = Math.min(Math.floor(at), stops.length - 2);
        return stops[below].map((part, n) => Math.round(part + (at - below) * (stops[below + 1][n] - part)));
    });
}

function levels(side)
{
    const text = atob(data[side].levels);
    const bytes = new Uint8Array(text.length);
    for (let n = 0; n < text.length; ++n)
        bytes[n] = text.charCodeAt(n);
    return bytes;
}
const isLittleEndian = new Uint8Array(Uint32Array.of(1).buffer)[0] === 1;
const kRange = 75; // dB that the colours tell apart, below the loudest

function spectrogram(values, loudest)
{
    const table = rampTable();
    // In the order of an ImageData, by level.
    const tones = Uint32Array.from({length: 256}, (_, level) => {
        const part = Math.max(0, 1 + (level - loudest) / 2 / kRange);
        const [red, green, blue] = table[Math.min(Math.round(part * 255), 255)];
        return new DataView(Uint8Array.of(red, green, blue, 255).buffer).getUint32(0, isLittleEndian);
    });
    const picture = make("canvas");
    picture.width = data.columns;
    picture.height = data.bands;
    const context = picture.getContext("2d");
    const pixels = context.createImageData(data.columns, data.bands);
    const out = new Uint32Array(pixels.data.buffer);
    for (let band = 0; band < data.bands; ++band) {
        const row = (data.bands - 1 - band) * data.columns;
        for (let column = 0; column < data.columns; ++column)
            out[row + column] = tones[values[band * data.columns + column]];
    }
    context.putImageData(pixels, 0, 0);
    return picture;
}

function drawSpectrogram(side, values, loudest)
{
    const picture = spectrogram(values, loudest);
    const ticks = [50, 100, 200, 500, 1000, 2000, 5000, 10000].filter(tick => tick < data.highest * 0.95);
    heading((side === "in" ? "Input" : "Output") + ": spectrogram", side);
    drawing(170, {
        isOpaque: true,
        scales: {y: {distr: 3, log: 10, range: [data.lowest, data.highest]}},
        valueAxis: axis({
            size: kLeft,
            splits: () => ticks,
            filter: (_, splits) => splits,
            values: (_, splits) => splits.map(hertz),
            grid: {show: false},
        }),
        series: [{}, {width: 0, points: {show: false}}],
        hooks: {
            drawClear: [plot => {
                const {min, max} = plot.scales.x;
                const from = (min - data.start) / duration * data.columns;
                const width = (max - min) / duration * data.columns;
                const {left, top, width: across, height} = plot.bbox;
                plot.ctx.imageSmoothingEnabled = true;
                plot.ctx.imageSmoothingQuality = "high";
                plot.ctx.drawImage(picture, from, 0, width, data.bands, left, top, across, height);
            }],
        },
    }, [middles, middles.map(() => data.lowest)], false);
}

function drawScale()
{
    const scale = make("div", undefined, "scale");
    const bar = make("canvas");
    bar.width = 256;
    bar.height = 1;
    const context = bar.getContext("2d");
    rampTable().forEach((tone, n) => {
        context.fillStyle = "rgb(" + tone + ")";
        context.fillRect(n, 0, 1, 1);
    });
    scale.append("\u2212" + kRange + " dB", bar, "the loudest");
    byId("plots").append(scale);
}

function drawSpeed()
{
    const fastest = Math.max(...data.speeds);
    const slowest = Math.min(...data.speeds);
    // No two on top of each other.
    const ticks = [0, slowest, fastest].filter((tick, n, all) => all.length - 1 === n || all[n + 1] - tick > fastest / 4);
    heading("Speed", "speed");
    drawing(84, {
        scales: {y: {range: [0, fastest * 1.25]}},
        valueAxis: axis({size: kLeft, splits: () => ticks, values: (_, s) => s.map(v => +v.toFixed(2))}),
        series: [{}, {stroke: colour("speed"), width: 2, points: {show: false},
            paths: uPlot.paths.stepped({align: 0})}],
    }, [middles, data.speeds], true);
}

function drawCourse()
{
    for (const plot of plots)
        plot.destroy();
    plots = [];
    byId("plots").textContent = "";
    if (!data.columns)
        return;
    drawWave("in");
    drawWave("out");
    const values = {in: levels("in"), out: levels("out")};
    const softest = 2 * kRange; // silence is to look like silence
    const loudest = Math.max(values.in.reduce((a, b) => Math.max(a, b), softest),
        values.out.reduce((a, b) => Math.max(a, b), softest));
    drawSpectrogram("in", values.in, loudest);
    drawSpectrogram("out", values.out, loudest);
    drawScale();
    drawSpeed();
    showPlace(place);
    showReadout(null);
}

// ---- Keys ----

// All pictures show the same time, so together they are one slider along it.
const slider = byId("plots");
let pointed = data.start || 0; // seconds of the input

function pointAt(media)
{
    const {min, max} = plots[0].scales.x;
    pointed = Math.min(Math.max(media, middles[0]), middles[middles.length - 1]);
    if (pointed < min || pointed > max)
        lookAt(max - min);
    for (const plot of plots)
        plot.setCursor({left: plot.valToPos(pointed, "x"), top: 0});
    slider.setAttribute("aria-valuenow", pointed.toFixed(2));
    slider.setAttribute("aria-valuetext", byId("readout").textContent);
}

// Shows so many seconds around what is pointed at.
function lookAt(seconds)
{
    const all = middles[middles.length - 1] - middles[0];
    if (all === 0)
        return; // a sound so short that nothing is left to look closer at
    const closest = Math.min(8 * duration / data.columns, all); // in which there is something to see
    const width = Math.min(Math.max(seconds, closest), all);
    const min = Math.min(Math.max(pointed - width / 2, middles[0]), middles[0] + all - width);
    for (const plot of plots)
        plot.batch(() => plot.setScale("x", {min, max: min + width}));
}

function obeyKey(event)
{
    const {min, max} = plots[0].scales.x;
    const width = max - min;
    const zoom = seconds => () => {
        lookAt(seconds);
        pointAt(pointed);
    };
    const actions = {
        ArrowRight: () => pointAt(pointed + width / 100),
        ArrowLeft: () => pointAt(pointed - width / 100),
        PageUp: () => pointAt(pointed + width / 4), // as with any slider
        PageDown: () => pointAt(pointed - width / 4),
        Home: () => pointAt(-Infinity),
        End: () => pointAt(Infinity),
        "+": zoom(width / 2),
        "=": zoom(width / 2),
        "-": zoom(width * 2),
        "0": zoom(Infinity),
        Enter: () => goTo(pointed),
    };
    if (event.ctrlKey || event.altKey || event.metaKey || !Object.hasOwn(actions, event.key))
        return;
    event.preventDefault();
    actions[event.key]();
}

function takeKeys()
{
    slider.setAttribute("role", "slider");
    slider.setAttribute("aria-valuemin", data.start);
    slider.setAttribute("aria-valuemax", end);
    slider.tabIndex = 0;
    slider.addEventListener("keydown", obeyKey);
    slider.addEventListener("focus", () => slider.matches(":focus-visible") && pointAt(pointed));
    slider.addEventListener("blur", () => plots.forEach(plot => plot.setCursor({left: -10, top: -10})));
}

// ---- Bands ----

let levelPlot = null;
const kFloor = -90; // dB, below which is silence

function drawLevels()
{
    if (levelPlot)
        levelPlot.destroy();
    byId("levels").textContent = "";
    const legend = make("div", undefined, "legend");
    legend.append(make("span", "Input", "label in"), make("span", "Output", "label out"));
    byId("levels").append(legend);
    const bands = data.thirds;
    const all = bands.flatMap(band => [band.in, band.out]);
    const top = Math.max(Math.ceil(Math.max(...all) / 10) * 10, kFloor + 10);
    const bottom = Math.max(Math.min(Math.floor(Math.min(...all) / 10) * 10, top - 10), kFloor);
    const line = side => ({stroke: colour(side), width: 2, points: {show: true, size: 6, fill: colour("card")}});
    const isNarrow = byId("levels").clientWidth < 600;
    const ticks = isNarrow ? [125, 500, 2000, 8000] : [62.5, 125, 250, 500, 1000, 2000, 4000, 8000, 16000];
    levelPlot = new uPlot({
        width: byId("levels").clientWidth,
        height: 220,
        padding: [6, 16, 0, 0],
        legend: {show: false},
        cursor: {show: false},
        scales: {
            x: {time: false, distr: 3, log: 2, range: () => [bands[0].hertz / 1.12, bands[bands.length - 1].hertz * 1.12]},
            y: {range: [bottom, top]},
        },
        axes: [axis({size: 26, splits: () => ticks.filter(t => t <= bands[bands.length - 1].hertz), filter: (_, s) => s,
            values: (_, s) => s.map(hertz)}), axis({size: kLeft, values: (_, s) => s.map(v => v + " dB")})],
        series: [{}, line("in"), line("out")],
    }, [bands.map(band => band.hertz), bands.map(band => Math.max(band.in, bottom)),
        bands.map(band => Math.max(band.out, bottom))], byId("levels"));
}

function showOctaves()
{
    const drop = -1200 * Math.log2(data.pitch);
    let note = "Levels are means over the whole sound, below a full-scale sine; what is played slowly counts as much in" +
        " the input as in the output. Pitch is how far the tones of a band came out from where they belong; 100 cents" +
        " are a semitone.";
    if (drop > 0)
        note += " At this speed the pitch drops by " + drop + " cents: each band is compared with where it went.";
    if (data.isPitchMixed)
        note += " Parts of this course drop the pitch, so bands don't match there: --keep-pitch keeps it.";
    byId("bands-note").textContent = note;
    const table = byId("octaves");
    const head = table.createTHead().insertRow();
    for (const title of ["Octave around", "Input", "Output", "Difference", "Pitch"])
        head.append(make("th", title));
    const body = table.createTBody();
    for (const band of data.octaves) {
        const row = body.insertRow();
        const isSilent = band.in < kFloor || band.out < kFloor;
        const level = value => value < kFloor ? "silence" : signed(value, 1) + " dB";
        row.insertCell().textContent = hertz(band.hertz);
        row.insertCell().textContent = level(band.in);
        row.insertCell().textContent = level(band.out);
        const cell = row.insertCell();
        if (isSilent) {
            cell.textContent = "–";
        } else {
            cell.textContent = signed(band.out - band.in, 1) + " dB";
            cell.append(differenceBar(band.out - band.in));
        }
        row.insertCell().textContent = band.cents === null ? "no clear tone" : signed(band.cents, 1) + " cents";
    }
}

// 12 dB to either side.
function differenceBar(difference)
{
    const bar = make("span", undefined, "bar");
    const part = Math.min(Math.abs(difference) / 12, 1) * 50;
    const inner = make("i");
    inner.style.width = part + "%";
    inner.style.left = (difference < 0 ? 50 - part : 50) + "%";
    bar.append(inner);
    return bar;
}

// ---- The page ----

function draw()
{
    drawCourse();
    drawLevels();
}

showSummary();
showFigures();
if (data.columns) {
    showPlayers();
    showOctaves();
    draw();
    takeKeys();
    isDark.addEventListener("change", draw);
    let width = innerWidth;
    addEventListener("resize", () => {
        if (innerWidth !== width)
            draw();
        width = innerWidth;
    });
} else {
    for (const id of ["sounds", "course", "bands"])
        byId(id).remove();
}
