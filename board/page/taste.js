// The taste of the engine: pairs of weight options as sliders, what they do to the score table, files
// of them, and a match of two.

import { byId, h, memory, saveText, say, settled } from "./dom.js"
import { rowElement, rowsOf, scaleOf } from "./bars.js"
import { centipawns } from "./score.js"

const OPTIONS = { Mtl_Pawn: "Pawn's worth", Mtl_Knight: "Knight's worth",
    Mtl_Bishop: "Bishop's worth", Mtl_Rook: "Rook's worth", Mtl_Queen: "Queen's worth",
    Activity_Knight: "Knight's activity", Activity_Bishop: "Bishop's activity",
    Activity_Rook: "Rook's activity", Activity_Queen: "Queen's activity",
    Pawn_Structure: "Pawn structure", Passed_Pawns: "Passed pawns", King_Safety: "King safety",
    Threats: "Threats" }
const PHASES = ["middle game", "endgame"]
const LOWEST = 20
const HIGHEST = 200     // per cent
const SETTLED = 80      // milliseconds without a change until the table is asked for

// Tastes to begin with.
const GIVEN = {
    "Vesk as it is": {},
    "Attacker": { King_Safety: [170, 120], Threats: [140, 120], Activity_Knight: [130, 110],
        Activity_Bishop: [130, 110], Activity_Queen: [130, 110], Pawn_Structure: [70, 90] },
    "Miser": { Mtl_Pawn: [130, 130], King_Safety: [70, 100], Activity_Knight: [80, 80],
        Activity_Bishop: [80, 80], Activity_Rook: [80, 80], Threats: [120, 120] },
    "Pawn player": { Pawn_Structure: [160, 150], Passed_Pawns: [160, 160] },
    "Friend of knights": { Mtl_Knight: [115, 115], Activity_Knight: [140, 140],
        Mtl_Bishop: [95, 95] },
}

// The lines of a configuration file.
export function configText(taste) {
    const lines = Object.keys(OPTIONS).map(name => {
        const [middle, end] = taste[name] ?? [100, 100]
        return `${name} = ${middle},${end}`
    })
    return `# A taste of Vesk, per cent of the middle game's and the endgame's weights.\n${
        lines.join("\n")}\n`
}

export class Taste {
    constructor(app) {
        this.app = app
        this.saved = {}
        this.inputs = {}
        this.build()
        this.set(memory.read("taste") ?? {})
        this.ask = settled(() => this.compare(), SETTLED)
        byId("taste-reset").onclick = () => this.choose({})
        byId("taste-choice").onchange = ({ target }) =>
            target.value && this.choose(this.find(target.value))
        byId("taste-form").addEventListener("submit", event => {
            event.preventDefault()
            this.save(false)
        })
        byId("taste-download").onclick = () =>
            saveText(`${this.name() || "taste"}.cfg`, configText(this.values()))
        byId("match").onclick = () => this.toggleMatch()
        app.connection.on("hello", () => app.connection.send({ type: "tastes" }))
        app.connection.on("tastes", message => this.list(message))
        app.connection.on("match", message => this.showMatch(message))
    }

    build() {
        const rows = [h("div", { class: "taste-row taste-head", "aria-hidden": "true" },
            h("span", { class: "name" }), h("span", {}, "Middle game"), h("span"),
            h("span", {}, "Endgame"), h("span"), h("span"))]
        for (const [name, title] of Object.entries(OPTIONS)) {
            const cells = PHASES.map(phase => {
                const text = h("output")
                const input = h("input", { type: "range", min: LOWEST, max: HIGHEST, step: 5,
                    "aria-label": `${title}, ${phase}, per cent`, "data-option": name,
                    oninput: () => this.moved() })
                return { input, text }
            })
            const row = h("div", { class: "taste-row" }, h("span", { class: "name", title: name },
                title), ...cells.flatMap(({ input, text }) => [input, text]),
            h("button", { type: "button", "aria-label": `${title} to 100 %`,
                onclick: () => {
                    cells.forEach(({ input }) => { input.value = 100 })
                    this.moved()
                } }, "↺"))
            this.inputs[name] = { row, cells }
            rows.push(row)
        }
        byId("taste-rows").replaceChildren(...rows)
        this.list({ tastes: {} })
    }

    // The taste that the sliders show: pairs that are not at 100.
    values() {
        const taste = {}
        for (const [name, { cells }] of Object.entries(this.inputs)) {
            const pair = cells.map(({ input }) => Number(input.value))
            if (pair.some(value => value !== 100)) {
                taste[name] = pair
            }
        }
        return taste
    }

    set(taste) {
        for (const [name, { cells }] of Object.entries(this.inputs)) {
            cells.forEach(({ input }, index) => { input.value = taste[name]?.[index] ?? 100 })
        }
        this.showNumbers()
    }

    choose(taste) {
        this.set(taste)
        memory.write("taste", taste)
        this.changed()
    }

    showNumbers() {
        for (const { row, cells } of Object.values(this.inputs)) {
            cells.forEach(({ input, text }) => { text.textContent = `${input.value} %` })
            row.classList.toggle("changed", cells.some(({ input }) => input.value !== "100"))
        }
    }

    moved() {
        this.showNumbers()
        memory.write("taste", this.values())
        byId("taste-choice").value = ""
        this.ask()
    }

    changed() {
        if (this.app.panel === "taste") {
            this.ask()
        }
    }

    // The score table by this taste beside that of the engine as it is.
    async compare() {
        const { game, engine } = this.app
        const { fen } = game
        const taste = this.values()
        const text = JSON.stringify(taste)
        const [table, plain] = await Promise.all([engine.explain(fen, taste),
            engine.explain(fen, {})])
        if (this.app.panel !== "taste" || game.fen !== fen || JSON.stringify(this.values()) !== text) {
            return
        }
        const rows = rowsOf(table)
        const ghosts = Object.fromEntries(rowsOf(plain).map(row => [row.term, row.difference]))
        const scale = scaleOf(rows, rowsOf(plain))
        byId("taste-bars").replaceChildren(...rows.map(row =>
            rowElement(row, scale, { ghost: ghosts[row.term] })))
        byId("taste-head").textContent = rows.length
            ? `The position on the board: ${centipawns(table.score)} by this taste, `
                + `${centipawns(plain.score)} by Vesk as it is.`
            : "This position is judged by a rule, whatever the taste."
    }

    // ---- Files.

    find(name) {
        return this.saved[name] ?? GIVEN[name] ?? {}
    }

    name() {
        return byId("taste-name").value.trim()
    }

    list({ tastes, path, text }) {
        this.saved = tastes ?? this.saved
        const options = () => [...Object.keys(GIVEN), ...Object.keys(this.saved)]
            .map(name => h("option", { value: name }, name))
        for (const id of ["taste-choice", "match-choice"]) {
            const chosen = byId(id).value
            byId(id).replaceChildren(...(id === "taste-choice"
                ? [h("option", { value: "" }, "by the sliders")] : []), ...options())
            byId(id).value = chosen
            if (byId(id).selectedIndex < 0) {
                byId(id).selectedIndex = 0
            }
        }
        const box = byId("taste-text")
        if (path) {
            box.textContent = `Saved as ${path}. In a chess program, set the option ConfigFilePath `
                + "to this path."
        } else if (text === "exists") {
            box.replaceChildren("There is a taste of that name. ", h("button", { type: "button",
                onclick: () => this.save(true) }, "Replace it"))
        } else if (text) {
            box.textContent = `Not saved: ${text}.`
        }
    }

    save(replace) {
        const isSent = this.app.connection.send({ type: "save_taste", name: this.name(),
            taste: this.values(), replace })
        if (!isSent) {
            byId("taste-text").textContent = "There is no server to save it."
        }
    }

    // ---- A match.

    toggleMatch() {
        const { connection } = this.app
        if (this.isPlaying) {
            connection.send({ type: "stop_match" })
            return
        }
        const other = byId("match-choice").value
        const own = byId("taste-choice").value || this.name() || "the sliders"
        connection.send({ type: "match", taste: this.values(), other: this.find(other),
            name: own, other_name: other })
    }

    showMatch({ state, played, games, won, drawn, lost, name, other_name: other, text, path }) {
        this.isPlaying = state === "playing"
        byId("match").textContent = this.isPlaying ? "Stop the match" : `Play ${games} games`
        byId("match-progress").hidden = !this.isPlaying
        byId("match-progress").max = games
        byId("match-progress").value = played
        const bar = byId("match-bar")
        bar.hidden = played === 0
        const numbers = { won, drawn, lost }
        bar.setAttribute("aria-label", `won ${won}, drawn ${drawn}, lost ${lost}`)
        for (const [kind, count] of Object.entries(numbers)) {
            bar.querySelector(`.${kind}`).style.setProperty("width",
                `${played ? 100 * count / played : 0}%`)
        }
        const words = `${name} against ${other}: ${played} of ${games} games, won ${won}, drawn `
            + `${drawn}, lost ${lost}.`
        byId("match-text").textContent = [name ? words : "", text ? `${text}.` : "",
            path ? `The games: ${path}` : ""].filter(Boolean).join(" ")
        if (state === "over") {
            say(`The match is over: won ${won}, drawn ${drawn}, lost ${lost}.`)
        }
    }
}
