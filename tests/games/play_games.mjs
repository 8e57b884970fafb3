// Plays whole games of the engine against itself over UCI, refereed by an independent rules
// library: every move played, pondered on or printed in a line must be legal, no clock may run
// out, and the games end where the referee says so.
//
//     node play_games.mjs ENGINE REFEREE_FOLDER [--rounds N] [--parallel N] [--schedule FILE]
//
// REFEREE_FOLDER is where npm has installed the library. Status 1 after any violation.
//
// FILE holds a JSON array of games in place of those below, each played once a round and told as a
// line of JSON. Besides the fields of those below a game may have "options" (names and values),
// "fen" (white to move) and "opening" (moves, none where it is ""), and "peer", the path of another
// engine that plays itself: of that one only the moves played and the clock are judged.

import { spawn } from "node:child_process";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join, resolve } from "node:path";
import { createInterface } from "node:readline";
import { fileURLToPath } from "node:url";
import { isMainThread, parentPort, Worker, workerData } from "node:worker_threads";

const maxPlies = 240;           // a longer game is broken off
const replyLimit = 20000;       // ms without a reply after which an engine counts as hanging
const movetimeSlack = 250;      // ms that a fixed-time move may take longer than told

// One row per game of a round. Times are milliseconds; moves is the length of a control.
// Every move costs some milliseconds even on an empty clock, so games without an increment are
// broken off earlier than the others.
const schedule = [
    { name: "sudden death", base: 8000, maxPlies: 180 },
    { name: "sudden death, ponder", base: 8000, maxPlies: 180, ponder: true },
    { name: "sudden death, 2 threads", base: 8000, maxPlies: 180, threads: 2 },
    { name: "sudden death, very short", base: 2000, maxPlies: 100 },
    { name: "increment", base: 800, increment: 40 },
    { name: "increment, ponder", base: 800, increment: 40, ponder: true },
    { name: "increment, 2 threads, ponder", base: 1000, increment: 30, threads: 2, ponder: true },
    { name: "movestogo", base: 1200, moves: 20 },
    { name: "movestogo, ponder", base: 1200, moves: 15, ponder: true },
    { name: "movestogo, 2 threads", base: 1500, moves: 30, threads: 2 },
    { name: "movetime", movetime: 25 },
    { name: "movetime, 2 threads, ponder", movetime: 30, threads: 2, ponder: true },
];

const openings = [
    "e2e4 e7e5 g1f3 b8c6 f1b5 a7a6",
    "d2d4 d7d5 c2c4 e7e6 b1c3 g8f6",
    "e2e4 c7c5 g1f3 d7d6 d2d4 c5d4",
    "c2c4 e7e5 b1c3 g8f6 g2g3 d7d5",
    "d2d4 g8f6 c2c4 g7g6 b1c3 f8g7",
    "e2e4 e7e6 d2d4 d7d5 b1c3 f8b4",
    "e2e4 c7c6 d2d4 d7d5 e4e5 c8f5",
    "g1f3 d7d5 g2g3 g8f6 f1g2 e7e6",
    "e2e4 e7e5 f2f4 e5f4 g1f3 g7g5",
    "d2d4 f7f5 g2g3 g8f6 f1g2 e7e6",
    "e2e4 g7g6 d2d4 f8g7 b1c3 d7d6",
    "b2b3 e7e5 c1b2 b8c6 e2e3 g8f6",
];

class Violation extends Error {
}

// Told apart, since the load of the machine has a part in it.
class TimeLoss extends Violation {
}

// One engine process: lines out, lines in, and a wait for a line that matches.
class Engine {
    constructor(path, label, isPeer) {
        this.label = label;
        this.isPeer = isPeer;
        this.log = [];
        this.waiting = null;
        this.infoLines = [];
        this.ready = false;         // set up: from here on only replies are expected
        this.exited = false;
        this.process = spawn(path, [], { stdio: ["pipe", "pipe", "inherit"] });
        this.process.stdin.on("error", () => {});
        this.process.on("exit", (code, signal) => {
            this.exited = true;
            this.exitText = signal ?? `status ${code}`;
            this.finish(null);
        });
        createInterface({ input: this.process.stdout }).on("line", (line) => this.receive(line));
    }

    send(line) {
        this.log.push(`> ${line}`);
        this.process.stdin.write(`${line}\n`);
    }

    receive(line) {
        this.log.push(`< ${line}`);
        if (/^info .* pv /.test(line)) {
            this.infoLines.push(line);
        }
        if (this.ready && !/^(readyok|info|bestmove)\b/.test(line)) {
            this.problem = `unexpected line: ${line}`;
        }
        if (this.waiting && this.waiting.pattern.test(line)) {
            this.finish(line);
        }
    }

    finish(line) {
        const waiting = this.waiting;
        if (waiting) {
            this.waiting = null;
            clearTimeout(waiting.timer);
            waiting.resolve({ line, when: performance.now() });
        }
    }

    // The line that matches pattern and the time of its arrival.
    async expect(pattern) {
        const reply = await new Promise((resolvePromise) => {
            const timer = setTimeout(() => this.finish(null), replyLimit);
            this.waiting = { pattern, resolve: resolvePromise, timer };
            if (this.exited) {
                this.finish(null);
            }
        });
        if (reply.line === null) {
            this.fail(this.exited ? `ended (${this.exitText})` : `no reply like ${pattern}`);
        }
        if (this.problem && !this.isPeer) {
            this.fail(this.problem);
        }
        return reply;
    }

    fail(text, Kind = Violation) {
        throw new Kind(`${this.label}: ${text}\n${this.log.slice(-12).join("\n")}`);
    }

    async quit() {
        this.send("quit");
        for (let waited = 0; !this.exited && waited < 3000; waited += 20) {
            await new Promise((done) => setTimeout(done, 20));
        }
        if (!this.exited || this.exitText !== "status 0") {
            this.process.kill("SIGKILL");
            this.fail(`did not end well after quit: ${this.exitText}`);
        }
    }
}

// Plays text on the referee's board. Returns the referee's move, or null if it is not legal.
function playMove(chess, text) {
    if (!/^[a-h][1-8][a-h][1-8][qrbn]?$/.test(text)) {
        return null;
    }
    try {
        const move = chess.move({ from: text.slice(0, 2), to: text.slice(2, 4), promotion: text[4] });
        return move.from + move.to + (move.promotion ?? "") === text ? move : null;
    } catch {
        return null;
    }
}

// Judges lines of moves from one position. Lines of one search share most of their moves, so
// each distinct beginning is judged once.
class LineJudge {
    constructor(Chess, fen) {
        this.chess = new Chess(fen);
        this.positions = new Map([["", fen]]);
    }

    // The first illegal move of a line, or null.
    firstIllegal(moves) {
        let beginning = "";
        let loaded = false;
        for (const text of moves) {
            const next = `${beginning} ${text}`;
            if (!this.positions.has(next)) {
                if (!loaded) {
                    this.chess.load(this.positions.get(beginning));
                    loaded = true;
                }
                const move = playMove(this.chess, text);
                if (!move) {
                    return text;
                }
                this.positions.set(next, move.after);
            } else {
                loaded = false;
            }
            beginning = next;
        }
        return null;
    }
}

// Judges everything that engine printed for its search of the position fen, and its reply.
function judgeReply(Chess, engine, fen, reply, counts) {
    const match = /^bestmove (\S+)(?: ponder (\S+))?$/.exec(
        engine.isPeer ? reply.trim() : reply);
    if (!match) {
        engine.fail(`malformed reply: ${reply}`);
    }
    const judge = new LineJudge(Chess, fen);
    if (engine.isPeer) {
        engine.infoLines = [];
    }
    for (const line of engine.infoLines) {
        const illegal = judge.firstIllegal(line.replace(/^.* pv /, "").trim().split(/\s+/));
        if (illegal) {
            engine.fail(`illegal move ${illegal} in a line of ${fen}: ${line}`);
        }
        counts.lines += 1;
    }
    const [, best, ponder] = match;
    if (judge.firstIllegal(ponder && !engine.isPeer ? [best, ponder] : [best])) {
        engine.fail(`illegal reply in ${fen}: ${reply}`);
    }
    if (/ score mate 1 /.test(engine.infoLines.at(-1) ?? "")) {
        const after = new Chess(judge.positions.get(` ${best}`));
        if (!after.isCheckmate()) {
            engine.fail(`announced mate in one, but ${best} does not mate in ${fen}`);
        }
    }
    engine.infoLines = [];
    return { best, ponder };
}

async function startEngine(path, label, game) {
    const engine = new Engine(path, label, Boolean(game.peer));
    engine.send("uci");
    await engine.expect(/^uciok$/);
    engine.send("setoption name Hash value 16");
    engine.send(`setoption name Threads value ${game.threads ?? 1}`);
    engine.send(`setoption name Ponder value ${game.ponder ? "true" : "false"}`);
    for (const [name, value] of Object.entries(game.options ?? {})) {
        engine.send(`setoption name ${name} value ${value}`);
    }
    engine.send("ucinewgame");
    engine.send("isready");
    await engine.expect(/^readyok$/);
    engine.ready = true;
    return engine;
}

function positionWords(game, moves) {
    const start = game.fen ? `fen ${game.fen}` : "startpos";
    return `position ${start}${moves.length > 0 ? ` moves ${moves.join(" ")}` : ""}`;
}

function clockWords(game, clocks, plies) {
    if (game.movetime) {
        return `movetime ${game.movetime}`;
    }
    let words = `wtime ${Math.floor(clocks[0])} btime ${Math.floor(clocks[1])}`;
    if (game.increment) {
        words += ` winc ${game.increment} binc ${game.increment}`;
    }
    if (game.moves) {
        words += ` movestogo ${game.moves - (Math.floor(plies / 2) % game.moves)}`;
    }
    return words;
}

function resultOf(chess) {
    if (chess.isCheckmate()) {
        return chess.turn() === "w" ? "0-1 checkmate" : "1-0 checkmate";
    }
    if (chess.isStalemate()) {
        return "1/2 stalemate";
    }
    if (chess.isInsufficientMaterial()) {
        return "1/2 material";
    }
    if (chess.isThreefoldRepetition()) {
        return "1/2 repetition";
    }
    return chess.isDraw() ? "1/2 fifty moves" : null;
}

// Lets engine search the game's position and returns its judged reply with the time it took.
// pondering is the move it has been pondering on, the game's last move if it guessed right.
async function think(Chess, engine, game, chess, moves, clocks, pondering, counts) {
    const position = positionWords(game, moves);
    if (pondering && pondering.guess !== moves.at(-1)) {
        engine.send("stop");
        const { line } = await engine.expect(/^bestmove /);
        judgeReply(Chess, engine, pondering.fen, line, counts);
        counts.misses += 1;
        pondering = null;
    }
    const started = performance.now();
    if (pondering) {
        engine.send("ponderhit");
        counts.hits += 1;
    } else {
        engine.send(position);
        engine.send(`go ${clockWords(game, clocks, moves.length)}`);
    }
    const { line, when } = await engine.expect(/^bestmove /);
    const reply = judgeReply(Chess, engine, chess.fen(), line, counts);
    return { ...reply, took: when - started };
}

// Sends engine pondering on the reply that it expects, if the game would go on behind that.
function startPondering(Chess, engine, game, chess, moves, clocks, ponder) {
    const ahead = new Chess(chess.fen());
    if (!playMove(ahead, ponder) || ahead.isGameOver()) {
        return null;
    }
    const line = [...moves, ponder];
    engine.send(positionWords(game, line));
    engine.send(`go ponder ${clockWords(game, clocks, line.length)}`);
    return { guess: ponder, fen: ahead.fen() };
}

async function playGame(Chess, path, game, opening, label, counts) {
    const chess = game.fen ? new Chess(game.fen) : new Chess();
    if (chess.turn() !== "w") {
        throw new Error(`${game.fen}: clocks are kept for games that White begins`);
    }
    const moves = opening.split(" ").filter((text) => text !== "");
    moves.forEach((text) => {
        if (!playMove(chess, text)) {
            throw new Error(`the opening ${opening} is not legal`);
        }
    });
    const engines = [];
    try {
        for (const colour of ["white", "black"]) {
            engines.push(await startEngine(path, `${label} ${colour}`, game));
        }
        return await playMoves(Chess, engines, game, chess, moves, counts);
    } finally {
        // After quit this does nothing. An engine lives on without its standard input.
        engines.forEach((engine) => engine.process.kill("SIGKILL"));
    }
}

// Charges a move to the clock of side and sees that the engine kept to its time.
function chargeClock(engine, game, clocks, side, took, counts) {
    if (game.movetime) {
        if (took > game.movetime + movetimeSlack) {
            engine.fail(`took ${took} ms of ${game.movetime}`, TimeLoss);
        }
        return;
    }
    clocks[side] -= took;
    counts.lowest = Math.min(counts.lowest, clocks[side]);
    if (clocks[side] < 0) {
        engine.fail(`lost on time by ${-clocks[side]} ms`, TimeLoss);
    }
    clocks[side] += game.increment ?? 0;
}

// Plays from the opening to the end of the game, and ends both engines. Returns the result.
async function playMoves(Chess, engines, game, chess, moves, counts) {
    const clocks = [game.base ?? 0, game.base ?? 0];
    const pondering = [null, null];
    let result = null;
    while (result === null && moves.length < (game.maxPlies ?? maxPlies)) {
        const side = moves.length % 2;
        const reply = await think(Chess, engines[side], game, chess, moves, clocks,
            pondering[side], counts);
        pondering[side] = null;
        chargeClock(engines[side], game, clocks, side, reply.took, counts);
        playMove(chess, reply.best);
        moves.push(reply.best);
        if (game.moves && Math.ceil(moves.length / 2) % game.moves === 0) {
            clocks[side] += game.base;
        }
        result = resultOf(chess);
        if (result === null && game.ponder && reply.ponder) {
            pondering[side] = startPondering(Chess, engines[side], game, chess, moves, clocks,
                reply.ponder);
        }
    }
    for (const side of [0, 1]) {
        if (pondering[side]) {
            engines[side].send("stop");
            const { line } = await engines[side].expect(/^bestmove /);
            judgeReply(Chess, engines[side], pondering[side].fen, line, counts);
        }
        await engines[side].quit();
    }
    return `${result ?? "* broken off"}, ${moves.length} plies`;
}

// A game that was played to its end, for a person.
function describe(label, game, result, counts) {
    const ponder = game.ponder ? `, ponder hits ${counts.hits} of `
        + `${counts.hits + counts.misses}` : "";
    const clock = game.base ? `, lowest clock ${Math.round(counts.lowest)} ms` : "";
    return `${label}: ${result}, ${counts.lines} lines${ponder}${clock}`;
}

async function playShare({ engine, referee, games, asJson }) {
    const { Chess } = createRequire(join(referee, "package.json"))("chess.js");
    let failed = 0;
    const tell = (text, record) => {
        parentPort.postMessage(asJson ? JSON.stringify(record) : text);
    };
    for (const { number, game, opening } of games) {
        const counts = { lines: 0, hits: 0, misses: 0, lowest: game.base ?? 0 };
        const label = `game ${number} (${game.name})`;
        const record = { number, name: game.name, peer: game.peer ?? null, counts };
        try {
            const path = game.peer ?? engine;
            const result = await playGame(Chess, path, game, opening, label, counts);
            tell(describe(label, game, result, counts), { ...record, result });
        } catch (error) {
            failed += 1;
            const failure = error instanceof Violation ? error.message : error.stack;
            const onTime = error instanceof TimeLoss;
            tell(`${label}: FAILED: ${failure}`, { ...record, failure, onTime });
        }
    }
    // Engines of a failed game may still run, and would keep the thread alive.
    process.exit(failed);
}

// The games of one round: those of the file that --schedule names, or the ones above.
function readSchedule(words) {
    const index = words.indexOf("--schedule");
    return index < 0 ? null : JSON.parse(readFileSync(words[index + 1], "utf8"));
}

function readNumber(words, name, fallback) {
    const index = words.indexOf(name);
    return index < 0 ? fallback : Number(words[index + 1]);
}

async function main() {
    const [engine, referee, ...words] = process.argv.slice(2);
    if (!engine || !referee) {
        console.error("usage: play_games.mjs ENGINE REFEREE_FOLDER [--rounds N] [--parallel N] "
            + "[--schedule FILE]");
        process.exit(2);
    }
    const ownSchedule = readSchedule(words);
    const row = ownSchedule ?? schedule;
    const rounds = readNumber(words, "--rounds", ownSchedule ? 1 : 2);
    const parallel = readNumber(words, "--parallel", 2);
    const shares = Array.from({ length: parallel }, () => []);
    for (let number = 0; number < rounds * row.length; number += 1) {
        const round = Math.floor(number / row.length);
        const game = row[number % row.length];
        const opening = game.opening ?? openings[(number + 5 * round) % openings.length];
        shares[number % parallel].push({ number: number + 1, game, opening });
    }
    const workers = shares.map((games) => {
        const worker = new Worker(fileURLToPath(import.meta.url), {
            workerData: {
                engine: resolve(engine), referee: resolve(referee), games,
                asJson: ownSchedule !== null,
            },
        });
        worker.on("message", (text) => console.log(text));
        worker.on("error", (error) => console.log(`FAILED: ${error.stack}`));
        return new Promise((done) => worker.on("exit", done));
    });
    const failed = (await Promise.all(workers)).reduce((sum, code) => sum + code, 0);
    console.log(failed ? `${failed} games failed` : `${rounds * row.length} games played`);
    process.exit(failed ? 1 : 0);
}

if (isMainThread) {
    await main();
} else {
    await playShare(workerData);
}
