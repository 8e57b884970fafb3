// What a training has done: its errors over the passes, and the weights before and after, the tables
// of squares as maps of the board.

import { byId, h, s } from "./dom.js"

const FILES = "abcdefgh"
const MOST_MOVERS = 20
const LARGEST_FILE = 1 << 20    // bytes
const MOST_ROWS = 10000         // of a table; those of a training have a thousand
const WIDTH = 640
const HEIGHT = 220
const EDGE = { left: 62, right: 12, top: 10, bottom: 28 }
const NAMES = { PST_P1: "Pawns", PST_CP: "Pawns beside each other", PST_DP: "Pawns in front",
    PST_N1: "Knights", PST_B1: "Bishops", PST_R1: "Rooks", PST_Q1: "Queens", PST_K: "King",
    PST_P2: "Pawns, kings apart", PST_N2: "Knights, kings apart", PST_B2: "Bishops, kings apart",
    PST_R2: "Rooks, kings apart", PST_Q2: "Queens, kings apart" }

// ---- Reading.

// The rows of a table with a head, as records of texts.
function readTable(text, wanted) {
    const [head, ...lines] = text.trim().split(/\r?\n/)
    const names = head.split(",")
    if (!wanted.every(name => names.includes(name))) {
        throw new Error(`its first line does not name ${wanted.join(", ")}`)
    }
    if (lines.length > MOST_ROWS) {
        throw new Error(`it has more than ${MOST_ROWS} rows`)
    }
    return lines.map(line => {
        const fields = line.split(",")
        return Object.fromEntries(names.map((name, index) => [name, fields[index] ?? ""]))
    })
}

export function readErrors(text) {
    return readTable(text, ["pass", "training_error", "validation_error"]).map(row => ({
        pass: Number(row.pass), training: Number(row.training_error),
        validation: row.validation_error === "" ? null : Number(row.validation_error),
        isBest: row.best === "1" })).filter(row => Number.isFinite(row.training)
        && Number.isFinite(row.pass) && Number.isFinite(row.validation ?? 0))
}

// Of each weight its name, the place within its table (null for a single one), and its values.
export function readReport(text) {
    return readTable(text, ["weight", "old_mg", "new_mg", "old_eg", "new_eg"]).map(row => {
        const [name, place = null] = row.weight.split(" ")
        return { name, place, old: { mg: Number(row.old_mg), eg: Number(row.old_eg) },
            new: { mg: Number(row.new_mg), eg: Number(row.new_eg) } }
    }).filter(row => [row.old, row.new].every(pair =>
        Number.isFinite(pair.mg) && Number.isFinite(pair.eg)))
}

// A file of weights; what the weights were before comes from elsewhere.
export function readParams(text) {
    const counts = {}
    const found = []
    for (const [, name, mg, eg] of text.matchAll(/fset\("([^"]{1,40})",(-?\d+),(-?\d+)\)/g)) {
        const index = counts[name] = (counts[name] ?? -1) + 1
        const isTable = name.startsWith("PST_")
        found.push({ name, index, place: isTable ? FILES[index & 7] + ((index >> 3) + 1) : null,
            new: { mg: Number(mg), eg: Number(eg) } })
    }
    for (const weight of found) {
        if (weight.place === null && counts[weight.name] > 0) {
            weight.place = String(weight.index + 1)
        }
    }
    return found
}

// ---- Drawing.

function ticks(low, high, count) {
    const step = (high - low) / count
    return Array.from({ length: count + 1 }, (_, index) => low + index * step)
}

function chart(rows) {
    const values = rows.flatMap(row => [row.training, row.validation]).filter(value => value !== null)
    const low = Math.min(...values)
    const high = Math.max(...values)
    const last = rows.at(-1).pass
    const first = rows[0].pass
    const x = pass => EDGE.left + (WIDTH - EDGE.left - EDGE.right)
        * (last > first ? (pass - first) / (last - first) : 0.5)
    const y = value => EDGE.top + (HEIGHT - EDGE.top - EDGE.bottom)
        * (high > low ? (high - value) / (high - low) : 0.5)
    const line = kind => rows.filter(row => row[kind] !== null)
        .map(row => `${x(row.pass).toFixed(1)},${y(row[kind]).toFixed(1)}`).join(" ")
    const best = rows.filter(row => row.isBest).at(-1)
    const words = best ? `, best in pass ${best.pass}` : ""
    return s("svg", { class: "chart", viewBox: `0 0 ${WIDTH} ${HEIGHT}`, role: "img",
        "aria-label": `Error over ${rows.length} passes, from ${high} down to ${low}${words}` },
    ...ticks(low, high, 4).flatMap(value => [
        s("line", { class: "axis", x1: EDGE.left, x2: WIDTH - EDGE.right, y1: y(value),
            y2: y(value) }),
        s("text", { x: EDGE.left - 6, y: y(value) + 4, "text-anchor": "end" }, value.toFixed(5))]),
    ...rows.filter((_, index) => index % Math.ceil(rows.length / 12) === 0).map(row =>
        s("text", { x: x(row.pass), y: HEIGHT - 10, "text-anchor": "middle" }, String(row.pass))),
    s("polyline", { class: "training", points: line("training") }),
    s("polyline", { class: "validation", points: line("validation") }),
    best && best.validation !== null ? s("circle", { cx: x(best.pass), cy: y(best.validation),
        r: 5 }) : null,
    s("text", { x: WIDTH - EDGE.right, y: 20, "text-anchor": "end" },
        `blue: training, orange: games held out${words}`))
}

// A map of the board; values by the name of a square.
function map(title, values, greatest) {
    const rows = []
    for (let rank = 8; rank >= 1; --rank) {
        const cells = [...FILES].map(file => {
            const value = values[file + rank]
            const share = Math.min(1, Math.abs(value ?? 0) / greatest)
            const cell = h("td", { title: `${file}${rank}: ${value}` }, String(value ?? ""))
            cell.style.setProperty("background", `color-mix(in srgb, ${value < 0 ? "var(--map-low)"
                : "var(--map-high)"} ${Math.round(85 * share)}%, var(--panel))`)
            return cell
        })
        rows.push(h("tr", {}, h("th", { scope: "row" }, String(rank)), ...cells))
    }
    const foot = h("tr", {}, h("th"), ...[...FILES].map(file => h("th", { scope: "col" }, file)))
    return h("table", { class: "map" }, h("caption", {}, title), ...rows, foot)
}

export class Tuning {
    constructor(app) {
        this.app = app
        this.weights = []
        this.builtIn = null
        byId("reports").onchange = event => this.ask(event.target.value)
        byId("report-file").onchange = event => this.readFiles(event.target)
        byId("table").onchange = () => this.showMaps()
        for (const input of document.querySelectorAll("[name=part]")) {
            input.onchange = () => { this.showMaps(); this.showMovers() }
        }
        app.connection.on("reports", message => this.list(message))
        app.connection.on("report", message => this.take(message))
    }

    changed() {
        if (this.app.panel === "tuning" && !this.isAsked) {
            this.isAsked = this.app.connection.send({ type: "reports" })
        }
    }

    list({ names }) {
        byId("reports").replaceChildren(h("option", { value: "" }, "none"),
            ...names.map(name => h("option", { value: name }, name)))
        if (names.length && this.weights.length === 0) {
            byId("reports").value = names[0]
            this.ask(names[0])
        }
    }

    ask(name) {
        if (name) {
            this.app.connection.send({ type: "report", name })
        }
    }

    // What the server has found: texts by the name of the file, and the engine's own weights.
    take({ name, files, own }) {
        this.builtIn = own ? readParams(own) : this.builtIn
        this.show(files, name)
    }

    async readFiles(input) {
        const files = {}
        for (const file of [...input.files].slice(0, 4)) {
            if (file.size <= LARGEST_FILE) {
                files[file.name] = await file.text()
            }
        }
        input.value = ""
        if (!this.builtIn) {
            this.app.connection.send({ type: "report", name: "" })
        }
        this.show(files, Object.keys(files).join(", "))
    }

    show(files, name) {
        const faults = []
        const attempt = (file, read) => {
            try {
                return read(files[file])
            } catch (fault) {
                faults.push(`${file}: ${fault.message}`)
                return []
            }
        }
        let errors = []
        let report = []
        let params = []
        for (const file of Object.keys(files)) {
            if (/error.*\.csv$/.test(file)) {
                errors = attempt(file, readErrors)
            } else if (/\.csv$/.test(file)) {
                report = attempt(file, readReport)
            } else if (/\.txt$/.test(file) && /fset\(/.test(files[file])) {
                params = attempt(file, readParams)
            }
        }
        byId("errors").hidden = errors.length === 0
        if (errors.length) {
            byId("errors-graph").replaceChildren(chart(errors))
        }
        this.weights = report.length ? report : this.join(params)
        byId("weights").hidden = this.weights.length === 0
        const parts = [errors.length && `${errors.length} passes`,
            this.weights.length && `${this.weights.length} weights`].filter(Boolean)
        byId("tuning-text").textContent = [...faults, name
            ? `${name}: ${parts.join(", ") || "nothing that can be drawn"}.` : ""].join(" ")
        this.showTables()
    }

    // Weights of a file against the engine's own.
    join(params) {
        if (!this.builtIn || params.length !== this.builtIn.length) {
            return params.map(weight => ({ ...weight, old: weight.new }))
        }
        return params.map((weight, index) => ({ ...weight, old: this.builtIn[index].new }))
    }

    showTables() {
        const names = [...new Set(this.weights.filter(({ name }) => name.startsWith("PST_"))
            .map(({ name }) => name))]
        const chosen = byId("table").value
        byId("table").replaceChildren(...names.map(name =>
            h("option", { value: name }, NAMES[name] ?? name)))
        byId("table").value = names.includes(chosen) ? chosen
            : names.includes("PST_N1") ? "PST_N1" : names[0] ?? ""
        this.showMaps()
        this.showMovers()
    }

    get part() {
        return document.querySelector("[name=part]:checked").value
    }

    showMaps() {
        const { part } = this
        const rows = this.weights.filter(({ name }) => name === byId("table").value)
        const values = pick => Object.fromEntries(rows.map(row => [row.place, pick(row)]))
        const before = values(row => row.old[part])
        const after = values(row => row.new[part])
        const change = values(row => row.new[part] - row.old[part])
        const most = table => Math.max(1, ...Object.values(table).map(Math.abs))
        const shared = Math.max(most(before), most(after))
        byId("maps").replaceChildren(map("Before", before, shared), map("After", after, shared),
            map("Change", change, most(change)))
    }

    showMovers() {
        const { part } = this
        const change = row => row.new[part] - row.old[part]
        const rows = this.weights.filter(row => change(row) !== 0)
            .sort((a, b) => Math.abs(change(b)) - Math.abs(change(a))).slice(0, MOST_MOVERS)
        const cells = (tag, texts) => h("tr", {}, ...texts.map(text => h(tag, {}, String(text))))
        byId("movers").replaceChildren(h("table", { class: "movers" },
            cells("th", ["Weight", "Before", "After", "Change"]),
            ...rows.map(row => cells("td", [`${row.name}${row.place ? ` ${row.place}` : ""}`,
                row.old[part], row.new[part], `${change(row) > 0 ? "+" : "−"}${
                    Math.abs(change(row))}`]))))
    }
}
