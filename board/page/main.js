// The page: puts its parts together and lets them know what has changed.

import { byId, h, limited, memory, saveText, say } from "./dom.js"
import { Connection } from "./connection.js"
import { Engine } from "./engine.js"
import { completeFen, findFault, Game, splitPgn } from "./game.js"
import { Board } from "./board.js"
import { MoveList } from "./moves.js"
import { Graph } from "./graph.js"
import { Play } from "./play.js"
import { Analyse } from "./analyse.js"
import { Why } from "./why.js"
import { Taste } from "./taste.js"
import { Tuning } from "./tuning.js"
import { chanceOf, scoreText } from "./score.js"

const PANELS = ["play", "analyse", "why", "taste", "tuning"]
const THEMES = ["auto", "light", "dark"]
const LARGEST_FILE = 4 << 20    // bytes of a file with games
const PATIENCE = 3              // attempts to reach the server until somebody is told why it fails

const app = {
    panel: "play",
    game: new Game(),
    connection: new Connection(),

    // Everything that depends on whose turn it is and where the game is looked at.
    refresh() {
        const { game, play, board } = app
        const turn = game.turnAt(game.ply)
        board.allow(!play.isOn ? (game.legalMoves().length ? "both" : null)
            : game.isAtEnd && turn === play.human ? turn : null)
        play.refresh()
        for (const side of ["w", "b"]) {
            const name = game.tags[side === "w" ? "White" : "Black"] ?? ""
            byId(`name-${side}`).textContent = name && name !== "?" ? name
                : side === "w" ? "White" : "Black"
            byId(`player-${side}`).classList.toggle("to-move", turn === side && !game.isOver)
        }
        const isTurned = board.orientation === "b"
        byId("board-column").classList.toggle("turned", isTurned)
        byId("first").disabled = byId("back").disabled = game.ply === 0
        byId("forward").disabled = byId("last").disabled = game.isAtEnd
        byId("result").textContent = game.isOver ? `${game.result}, ${game.reason}` : ""
        app.showScore(game.evalAt(game.ply))
    },

    showScore(value) {
        const bar = byId("score-bar")
        const chance = value ? chanceOf(value) : 0.5
        bar.style.setProperty("--white", `${100 * chance}%`)
        bar.title = scoreText(value)
        bar.setAttribute("aria-label", value ? `Score ${scoreText(value)}` : "No score yet")
    },

    stopAnalysis() {
        app.analyse.stop()
        if (app.analyse.isReviewing) {
            app.analyse.stopReview()
        }
    },

    // A game is kept in this tab, and as the last one of all tabs.
    save() {
        const record = { ...app.game.toRecord(), play: app.play.toRecord() }
        memory.write("game", record, "sessionStorage")
        memory.write("game", record)
    },

    // A move by hand.
    move(move) {
        const { game, play } = app
        if (play.isOn && (!game.isAtEnd || game.turnAt(game.ply) !== play.human)) {
            return false
        }
        const old = game.isAtEnd ? null : game.toRecord()
        const played = game.play(move)
        if (!played) {
            return false
        }
        if (play.isOn) {
            play.moved(played)
        } else if (old && old.moves[old.ply] !== game.lastMove.uci) {
            offerBack(old)
        }
        return true
    },

    show(panel) {
        app.panel = panel
        for (const name of PANELS) {
            byId(`panel-${name}`).hidden = name !== panel
            const tab = byId(`tab-${name}`)
            tab.setAttribute("aria-selected", String(name === panel))
            tab.tabIndex = name === panel ? 0 : -1
        }
        document.body.dataset.panel = panel
        memory.write("panel", panel)
        app.why.mark()
        app.why.changed()
        app.taste.changed()
        app.tuning.changed()
        if (panel !== "analyse") {
            app.analyse.stop()
            app.board.drawArrows([])
        }
        app.graph.draw()
    },
}

// A move has cut off what came behind it: that can be had back.
function offerBack(record) {
    const box = byId("notice")
    box.replaceChildren("The moves behind this one were dropped. ",
        h("button", { type: "button", onclick: () => {
            app.game.fromRecord(record)
            box.replaceChildren()
        } }, "Bring them back"))
    setTimeout(() => box.replaceChildren(), 15000)
}

// ---- Games in and out.

function loadPgn(text) {
    try {
        app.stopAnalysis()
        app.play.leave()
        app.game.fromPgn(text)
        app.game.go(0)
        const { White = "?", Black = "?" } = app.game.tags
        say(`${White} against ${Black}, ${app.game.plies.length} half-moves.`)
        byId("import").close()
        return true
    } catch (error) {
        byId("import-fault").textContent = `This cannot be read: ${error.message}`
        return false
    }
}

function loadText(text) {
    const trimmed = text.trim()
    byId("import-fault").textContent = ""
    byId("import-games").hidden = true
    if (trimmed === "") {
        byId("import-fault").textContent = "There is nothing to read."
        return
    }
    if (/^[1-8pnbrqkPNBRQK]+(\/[1-8pnbrqkPNBRQK]+){7}(\s|$)/.test(trimmed)) {
        const fen = completeFen(trimmed.split("\n")[0])
        const fault = findFault(fen)
        if (fault) {
            byId("import-fault").textContent = `Not a position to look at: ${fault}`
            return
        }
        app.stopAnalysis()
        app.play.leave()
        app.game.reset(fen)
        byId("import").close()
        return
    }
    const games = splitPgn(trimmed)
    if (games.length === 1) {
        loadPgn(games[0])
        return
    }
    const tag = (game, name) => new RegExp(`\\[${name} "([^"]*)"`).exec(game)?.[1] ?? "?"
    byId("import-choice").replaceChildren(...games.slice(0, 500).map((game, index) =>
        h("option", { value: index },
            `${index + 1}. ${tag(game, "White")} – ${tag(game, "Black")}, ${tag(game, "Result")}`)))
    byId("import-games").hidden = false
    byId("import-take").onclick = () => loadPgn(games[Number(byId("import-choice").value)])
    if (games.length > 500) {
        byId("import-fault").textContent = `The first 500 of ${games.length} games are shown.`
    }
}

async function readFile(input) {
    const [file] = input.files
    input.value = ""
    if (!file) {
        return
    }
    if (file.size > LARGEST_FILE) {
        byId("import-fault").textContent = "A file of more than 4 MB is not read."
        return
    }
    const text = await file.text()
    byId("import-text").value = text.slice(0, 100000)
    loadText(text)
}

// ---- Putting it together.

function wireButtons() {
    const { game } = app
    byId("first").onclick = () => game.go(0)
    byId("back").onclick = () => game.go(game.ply - 1)
    byId("forward").onclick = () => game.go(game.ply + 1)
    byId("last").onclick = () => game.go(game.plies.length)
    byId("flip").onclick = () => {
        app.board.turn(app.board.orientation === "w" ? "b" : "w")
        setTimeout(() => app.refresh())
    }
    byId("save-pgn").onclick = () => saveText("game.pgn", game.toPgn(), "application/x-chess-pgn")
    byId("copy-fen").onclick = async () => {
        try {
            await navigator.clipboard.writeText(game.fen)
            say("The position is copied.")
        } catch {
            say(game.fen)
        }
    }
    byId("open-pgn").onclick = () => {
        byId("import-fault").textContent = ""
        byId("import").showModal()
    }
    byId("import-read").onclick = () => loadText(byId("import-text").value)
    byId("import-close").onclick = () => byId("import").close()
    byId("import-file").onchange = event => readFile(event.target)
    byId("theme").onclick = () => setTheme(THEMES[(THEMES.indexOf(theme()) + 1) % THEMES.length])
    byId("move-form").addEventListener("submit", event => {
        event.preventDefault()
        const input = byId("move-text")
        const text = input.value.trim()
        const isPlayed = text !== "" && app.move(text)
        byId("move-fault").textContent = isPlayed || text === "" ? "" : `${text} cannot be played here.`
        if (isPlayed) {
            input.value = ""
        }
    })
}

const theme = () => memory.read("theme") ?? "auto"

function setTheme(name) {
    memory.write("theme", name)
    document.documentElement.dataset.theme = name
    byId("theme").textContent = { auto: "◐", light: "☀", dark: "☾" }[name]
    byId("theme").setAttribute("aria-label", `Colours: ${name}. Change`)
}

function wireTabs() {
    PANELS.forEach((name, index) => {
        const tab = byId(`tab-${name}`)
        tab.onclick = () => app.show(name)
        tab.addEventListener("keydown", event => {
            const way = { ArrowRight: 1, ArrowLeft: -1 }[event.key]
            if (way) {
                const next = PANELS[(index + way + PANELS.length) % PANELS.length]
                app.show(next)
                byId(`tab-${next}`).focus()
                event.preventDefault()
            }
        })
    })
    // Arrow keys anywhere but in a field or on the board go through the game.
    addEventListener("keydown", event => {
        const isTaken = event.target.closest?.("input, select, textarea, dialog, svg, [role=tab]")
        const way = { ArrowLeft: -1, ArrowRight: 1 }[event.key]
        if (way && !isTaken && !event.ctrlKey && !event.metaKey && !event.altKey) {
            app.game.go(app.game.ply + way)
            event.preventDefault()
        }
    })
}

// Why no socket opens: a browser does not tell.
async function findReason() {
    try {
        await fetch("/icon.svg", { method: "HEAD", cache: "no-store" })
        return "The server takes no page from here: its address lacks the key, or too many pages "
            + "are open. Open the address that scripts/board prints."
    } catch {
        return "No server. Start scripts/board and open the address that it prints."
    }
}

function wireConnection() {
    const light = byId("connection")
    const tell = (state, text) => {
        light.dataset.state = state
        light.textContent = text
    }
    let failures = 0
    app.connection.on("state", ({ state }) => {
        failures = state === "open" ? 0 : failures + 1
        if (state !== "open" && failures <= PATIENCE) {
            tell("away", "Connecting…")
        } else if (state !== "open") {
            findReason().then(text => failures && tell("away", text))
        }
    })
    app.connection.on("refused", ({ text }) => say(`Refused: ${text}.`))
    app.connection.on("hello", ({ folder }) => { byId("folder").textContent = folder })
    app.engine.addEventListener("state", ({ detail }) => {
        if (detail.state === "ready") {
            tell("ready", app.engine.name)
            app.why.changed()
        } else if (detail.text) {
            tell("away", detail.text)
        }
    })
}

function follow() {
    const { game } = app
    const save = limited(() => app.save(), 300)
    const change = () => {
        app.board.drawArrows([])
        app.board.show()
        app.refresh()
        app.analyse.changed()
        app.why.changed()
        app.taste.changed()
        save()
    }
    game.addEventListener("game", change)
    game.addEventListener("ply", change)
}

function begin() {
    setTheme(theme())
    app.engine = new Engine(app.connection)
    app.board = new Board(byId("board"), app.game, move => app.move(move))
    app.moves = new MoveList(app.game)
    app.graph = new Graph(app.game)
    app.taste = new Taste(app)
    app.play = new Play(app)
    app.analyse = new Analyse(app)
    app.why = new Why(app)
    app.tuning = new Tuning(app)
    wireButtons()
    wireTabs()
    wireConnection()
    follow()
    const record = memory.read("game", "sessionStorage") ?? memory.read("game")
    if (record && app.game.fromRecord(record)) {
        app.play.fromRecord(record.play)
    }
    const panel = memory.read("panel")
    app.show(PANELS.includes(panel) ? panel : "play")
    app.board.show()
    app.refresh()
    app.loaded = performance.now()      // milliseconds from the first byte asked for
}

begin()
// For whoever looks at the page from its console, and for its tests.
window.vesk = app
