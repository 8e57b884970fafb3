// A game against the engine: its settings, whose turn it is, hints, taking back, the end.

import { byId, h, memory, say } from "./dom.js"
import { PRIORITY } from "./engine.js"
import { completeFen, DEFAULT_POSITION, findFault } from "./game.js"
import { Clock } from "./clock.js"
import { scoreText, whiteView } from "./score.js"
import { OPENINGS } from "./openings.js"

const SIDES = { w: "White", b: "Black" }
const DEFAULTS = { color: "w", elo: 1800, isFull: false, pace: "level", seconds: 1, minutes: 5,
    increment: 3, opening: "", fen: "", withTaste: false }
const DOUBT = 4000      // milliseconds in which resigning is confirmed

export class Play {
    constructor(app) {
        this.app = app
        this.isOn = false
        this.human = "w"
        this.settings = { ...DEFAULTS, ...memory.read("settings") }
        this.clock = new Clock(side => this.fall(side))
        this.job = null
        this.fill()
        app.engine.addEventListener("state", ({ detail }) => this.takeState(detail.state))
        // Reloading a page must not give time away, nor take it.
        addEventListener("pagehide", () => { this.clock.count(); app.save() })
    }

    // ---- Settings.

    fill() {
        const { settings } = this
        const opening = byId("opening")
        opening.append(h("option", { value: "" }, "The usual start"),
            ...OPENINGS.map(({ name }) => h("option", { value: name }, name)),
            h("option", { value: "fen" }, "A position of your own (FEN)"))
        for (const name of ["elo", "seconds", "minutes", "increment", "fen", "opening"]) {
            byId(name).value = settings[name]
        }
        if (opening.selectedIndex < 0) {
            opening.value = DEFAULTS.opening
        }
        byId("full").checked = settings.isFull === true
        byId("with-taste").checked = settings.withTaste === true
        for (const name of ["color", "pace"]) {
            const buttons = [...document.querySelectorAll(`[name=${name}]`)]
            const find = value => buttons.find(button => button.value === value)
            ;(find(settings[name]) ?? find(DEFAULTS[name])).checked = true
        }
        for (const event of ["input", "change"]) {
            byId("play-form").addEventListener(event, () => this.read())
        }
        byId("play-form").addEventListener("submit", event => {
            event.preventDefault()
            this.start()
        })
        byId("take-back").onclick = () => this.takeBack()
        byId("hint").onclick = () => this.hint()
        byId("resign").onclick = () => this.resign()
        byId("new-game").onclick = () => this.leave()
        this.read()
    }

    // The range of strengths is the engine's. While it is away nobody's clock runs.
    takeState(state) {
        if (state === "ready") {
            const [low, high] = this.app.engine.elo
            byId("elo").min = low
            byId("elo").max = high
            this.read()
        }
        if (this.isOn && state === "ready") {
            const { game } = this.app
            this.clock.run(game.turnAt(game.plies.length))
        } else if (this.isOn) {
            this.clock.halt()
        }
    }

    read() {
        const number = (id, low, high) =>
            Math.max(low, Math.min(high, Number(byId(id).value) || low))
        this.settings = {
            color: document.querySelector("[name=color]:checked").value,
            pace: document.querySelector("[name=pace]:checked").value,
            elo: number("elo", 1500, 3300), isFull: byId("full").checked,
            seconds: number("seconds", 0.1, 600), minutes: number("minutes", 0.1, 600),
            increment: number("increment", 0, 600) || 0, opening: byId("opening").value,
            fen: byId("fen").value, withTaste: byId("with-taste").checked }
        if (byId("increment").value === "0") {
            this.settings.increment = 0
        }
        byId("elo-text").textContent = this.settings.isFull ? "full strength"
            : `${this.settings.elo} Elo`
        byId("elo").disabled = this.settings.isFull
        byId("fen-row").hidden = this.settings.opening !== "fen"
        byId("level-row").hidden = this.settings.pace !== "level"
        byId("clock-row").hidden = this.settings.pace !== "clock"
        memory.write("settings", this.settings)
    }

    // ---- The game.

    start() {
        const { settings, app } = this
        const opening = OPENINGS.find(({ name }) => name === settings.opening)
        const fen = settings.opening === "fen" ? completeFen(settings.fen) : DEFAULT_POSITION
        const fault = findFault(fen)
        byId("fen-fault").textContent = fault ? `Not a position to play from: ${fault}` : ""
        if (fault) {
            byId("fen").focus()
            return
        }
        this.human = settings.color === "r" ? "wb"[Math.floor(2 * Math.random())] : settings.color
        const level = settings.isFull ? "" : ` ${settings.elo}`
        const names = { [this.human]: "You", [this.human === "w" ? "b" : "w"]: `Vesk${level}` }
        app.stopAnalysis()
        this.job?.cancel()
        app.game.reset(fen, { Event: "A game on the page", White: names.w, Black: names.b,
            ...(settings.pace === "clock"
                ? { TimeControl: `${60 * settings.minutes}+${settings.increment}` } : {}) })
        opening?.moves.forEach(move => app.game.play(move))
        app.connection.send({ type: "newgame" })
        this.clock.set(settings.pace === "clock" ? settings.minutes : 0, settings.increment)
        this.isOn = true
        this.forgetDoubt()
        app.board.turn(this.human)
        say(`A new game. You play ${SIDES[this.human]}.`)
        this.next()
    }

    // Whoever is to move goes on.
    next() {
        const { app } = this
        const { game } = app
        if (this.isOn && game.isOver) {
            this.finish()
            return
        }
        if (this.isOn) {
            const turn = game.turnAt(game.plies.length)
            this.clock.run(turn)
            if (turn !== this.human) {
                this.think()
            }
        }
        app.refresh()
        app.save()
    }

    taste() {
        return this.settings.withTaste ? this.app.taste.values() : {}
    }

    async think() {
        const { app, settings, clock } = this
        const { game } = app
        const limits = {}
        if (clock.left) {
            clock.count()
            const time = side => Math.max(1, Math.round(clock.left[side]))
            Object.assign(limits, { wtime: time("w"), btime: time("b"),
                winc: clock.increment, binc: clock.increment })
        } else {
            limits.movetime = Math.round(1000 * settings.seconds)
        }
        const job = app.engine.search({ fen: game.start, moves: game.plies.map(ply => ply.uci),
            limits, lines: 1, elo: settings.isFull ? null : settings.elo, taste: this.taste() },
        PRIORITY.move)
        this.job = job
        app.refresh()
        const { move, cancelled, lines } = await job.done
        if (this.job === job) {
            this.job = null
        }
        if (cancelled || !this.isOn) {
            app.refresh()
            return
        }
        const side = game.turnAt(game.plies.length)
        clock.press(side)
        game.go(game.plies.length)
        const played = move && game.play(move)
        if (!played) {
            this.isOn = false
            clock.halt()
            say("The engine has no move here; the game is left as it stands.")
            app.refresh()
            return
        }
        if (lines[0] && !settings.isFull) {
            game.lastMove.eval = null   // of a weakened search: no judgement
        } else if (lines[0]) {
            game.lastMove.eval = whiteView(lines[0], side)
        }
        say(`Vesk plays ${played.san}.`)
        this.next()
    }

    // The human's move has been played on the board.
    moved(move) {
        this.clock.press(move.color)
        this.next()
    }

    takeBack() {
        const { app } = this
        const { game } = app
        this.job?.cancel()
        do {
            game.takeBack(1)
        } while (game.plies.length > 0 && game.turnAt(game.plies.length) !== this.human)
        this.isOn = true
        say("Taken back.")
        this.next()
    }

    async hint() {
        const { app } = this
        const { game } = app
        const ply = game.ply
        byId("hint").disabled = true
        const job = app.engine.search({ fen: game.start,
            moves: game.plies.slice(0, ply).map(one => one.uci), limits: { movetime: 1000 },
            lines: 1, elo: null, taste: {}, analyse: true }, PRIORITY.hint)
        const { move, lines, cancelled } = await job.done
        byId("hint").disabled = false
        if (move && !cancelled && game.ply === ply) {
            const score = lines[0] ? ` (${scoreText(whiteView(lines[0], game.turnAt(ply)))})` : ""
            app.board.drawArrows([{ kind: "hint", from: move.slice(0, 2), to: move.slice(2, 4) }])
            say(`Hint: ${game.lineText(ply, [move])}${score}`)
        }
    }

    // A slip of the finger is not to lose a game: the button wants to be pressed again.
    resign() {
        const button = byId("resign")
        if (button.dataset.isSure !== "true") {
            button.dataset.isSure = "true"
            button.textContent = "Really resign?"
            say("Press again to resign.")
            this.doubt = setTimeout(() => this.forgetDoubt(), DOUBT)
            return
        }
        this.forgetDoubt()
        this.app.game.end(this.human === "w" ? "0-1" : "1-0", `${SIDES[this.human]} resigned`)
        this.finish()
    }

    forgetDoubt() {
        clearTimeout(this.doubt)
        byId("resign").dataset.isSure = "false"
        byId("resign").textContent = "Resign"
    }

    fall(side) {
        const { game } = this.app
        const other = side === "w" ? "b" : "w"
        const pieces = game.fenAt(game.plies.length).split(" ")[0]
        const isBare = !(other === "w" ? /[QRBNP]/ : /[qrbnp]/).test(pieces)
        game.end(isBare ? "1/2-1/2" : other === "w" ? "1-0" : "0-1",
            `${SIDES[side]} has no time left`)
        this.finish()
    }

    finish() {
        const { game } = this.app
        this.isOn = false
        this.job?.cancel()
        this.clock.halt()
        const words = { "1-0": "White wins", "0-1": "Black wins", "1/2-1/2": "A draw" }
        say(`${words[game.result]}: ${game.reason}.`)
        game.emit("game")
        this.app.refresh()
        this.app.save()
    }

    // The game on the board is left, for a new one or to look at it.
    leave() {
        this.isOn = false
        this.job?.cancel()
        this.clock.halt()
        this.app.refresh()
        this.app.save()
    }

    // ---- The browser's memory.

    toRecord() {
        return { isOn: this.isOn, human: this.human, left: this.clock.left,
            increment: this.clock.increment }
    }

    fromRecord(record) {
        this.isOn = record?.isOn === true
        this.human = record?.human === "b" ? "b" : "w"
        this.clock.load(record?.left ?? null, record?.increment ?? 0)
        if (this.isOn) {
            this.app.board.turn(this.human)
            this.next()
        }
    }

    refresh() {
        const { game } = this.app
        byId("play-settings").hidden = this.isOn
        byId("play-running").hidden = !this.isOn
        byId("take-back").disabled = !game.plies.some(ply => ply.color === this.human)
        const turn = game.turnAt(game.plies.length)
        byId("play-turn").textContent = !this.isOn ? ""
            : turn === this.human ? "Your move." : "Vesk is thinking…"
    }
}
