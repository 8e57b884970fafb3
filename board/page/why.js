// Why the engine judges a position as it does: its terms as bars, and on the board what they see.

import { byId, h } from "./dom.js"
import { rowElement, rowsOf, scaleOf } from "./bars.js"
import { featuresOf } from "./features.js"
import { centipawns } from "./score.js"

const MOST_WEIGHTS = 8  // of a term

export class Why {
    constructor(app) {
        this.app = app
        this.term = null
        byId("why-taste").addEventListener("change", () => this.changed())
    }

    get isShown() {
        return this.app.panel === "why"
    }

    async changed() {
        if (!this.isShown) {
            return
        }
        const { game, engine, taste } = this.app
        const { fen, ply } = game
        const values = byId("why-taste").checked ? taste.values() : {}
        const [table, before] = await Promise.all([engine.explain(fen, values),
            ply > 0 ? engine.explain(game.fenAt(ply - 1), values) : null])
        if (this.isShown && game.fen === fen) {
            this.show(table, before)
        }
    }

    show(table, before) {
        const rows = rowsOf(table)
        const old = Object.fromEntries(rowsOf(before).map(row => [row.term, row.difference]))
        const scale = scaleOf(rows)
        this.table = table
        const focused = document.activeElement?.dataset?.term
        byId("why-rows").replaceChildren(...rows.map(row => rowElement(row, scale, {
            change: before?.rows?.length ? row.difference - old[row.term] : 0,
            onclick: () => this.choose(row.term === this.term ? null : row.term) })))
        byId("why-rows").querySelector(`[data-term="${focused}"]`)?.focus()
        this.showHead(table, before)
        this.mark()
    }

    showHead(table, before) {
        const { game } = this.app
        const head = byId("why-head")
        if (!table.rows.length) {
            head.replaceChildren(h("p", {}, table.text
                ? `No table: ${table.text}.`
                : `This ending is judged by a rule, not by terms: ${table.rule}, `
                    + `${centipawns(table.score)}.`))
            byId("phase").hidden = true
            return
        }
        const { score } = table
        const who = score > 0 ? "White is ahead" : score < 0 ? "Black is ahead" : "even"
        const scale = table.scale < 1
            ? ` Of that ${Math.round(100 * table.scale)} % count: this is hard to win.` : ""
        const move = game.lastMove
        const text = [h("strong", {}, centipawns(score)),
            `: ${who}, without any search.${scale}`]
        if (move && before?.rows?.length) {
            const change = score - before.score
            text.push(` The arrows show what ${move.san} changed: ${centipawns(change)} in all.`)
        }
        head.replaceChildren(h("p", {}, ...text))
        byId("phase").hidden = false
        byId("phase-bar").value = table.phase
        byId("phase-text").textContent = `${Math.round(100 * table.phase)} % endgame`
    }

    choose(term) {
        this.term = term
        this.mark()
    }

    mark() {
        const { app, term } = this
        for (const row of byId("why-rows").children) {
            row.setAttribute("aria-pressed", String(row.dataset.term === term))
        }
        const { marks, text } = this.isShown && term
            ? featuresOf(term, app.game.fen, this.table?.hung ?? []) : { marks: [], text: "" }
        app.board.drawMarks(marks)
        byId("why-legend").textContent = text
            || "Choose a term to see on the board what it looks at."
        this.showWeights()
    }

    // The weights that make up the chosen term, the largest first.
    showWeights() {
        const weights = (this.table?.weights ?? []).filter(({ term }) => term === this.term)
            .filter(({ white, black }) => white !== 0 || black !== 0).slice(0, MOST_WEIGHTS)
        const cells = (tag, texts) => h("tr", {}, ...texts.map(text => h(tag, {}, text)))
        byId("why-weights").replaceChildren(...(weights.length && this.isShown
            ? [h("table", { class: "movers" }, cells("th", ["Weight", "White", "Black"]),
                ...weights.map(({ name, squares, white, black }) => cells("td",
                    [`${name}${squares.length ? ` ${squares.join(" ")}` : ""}`, centipawns(white),
                        centipawns(black)])))] : []))
    }
}
