// Analysis: lines of the position on the board, and a whole game gone through in the background.

import { byId, h, limited, say } from "./dom.js"
import { PRIORITY } from "./engine.js"
import { markOf, scoreText, whiteView } from "./score.js"

const FRAME = 50        // milliseconds between two redraws
const SHOWN_MOVES = 14
const FEW_MOVES = 4     // of each, where there are many lines
const MANY = 12
const MOST_LINES = 255
const short = new Intl.NumberFormat("en", { notation: "compact", maximumFractionDigits: 1 })

export class Analyse {
    constructor(app) {
        this.app = app
        this.job = null
        this.lines = []
        this.texts = new Map()      // of lines that were written out already
        this.ply = 0
        this.isOn = false           // goes on with the position that is looked at
        this.isReviewing = false
        this.draw = limited(() => this.show(), FRAME)
        byId("analysis").onclick = () => (this.isOn ? this.stop() : this.start())
        byId("limit").addEventListener("change", () => this.fitLimit())
        for (const id of ["lines", "limit", "limit-value"]) {
            byId(id).addEventListener("change", () => this.changed())
        }
        byId("review").onclick = () => (this.isReviewing ? this.stopReview() : this.review())
        this.fitLimit()
    }

    fitLimit() {
        const kind = byId("limit").value
        byId("limit-value").hidden = kind === "infinite"
        const usual = { depth: 18, movetime: 5, nodes: 1 }[kind]
        if (usual !== undefined && this.kind !== kind) {
            byId("limit-value").value = usual
        }
        this.kind = kind
    }

    limits() {
        const kind = byId("limit").value
        const value = Number(byId("limit-value").value) || 1
        const factor = { depth: 1, movetime: 1000, nodes: 1e6 }[kind]
        const most = { depth: 100, movetime: 3600e3, nodes: 1e12 }[kind]
        return kind === "infinite" ? {}
            : { [kind]: Math.max(1, Math.min(most, Math.round(factor * value))) }
    }

    // ---- The position on the board.

    start() {
        this.isOn = true
        this.changed()
    }

    stop() {
        this.isOn = false
        this.job?.cancel()
        this.job = null
        this.refresh()
    }

    // The position or a setting has changed.
    changed() {
        this.job?.cancel()
        this.job = null
        this.lines = []
        this.texts.clear()
        const { game } = this.app
        this.ply = game.ply
        if (this.isOn) {
            this.search()
        }
        this.draw()
        this.refresh()
    }

    async search() {
        const { app, ply } = this
        const { game } = app
        if (game.legalMoves().length === 0) {
            return
        }
        const wanted = Math.floor(Number(byId("lines").value)) || 1
        const count = Math.max(1, Math.min(MOST_LINES, wanted))
        const job = app.engine.search({ fen: game.start,
            moves: game.plies.slice(0, ply).map(one => one.uci), limits: this.limits(),
            lines: count, elo: null, taste: app.play.settings.withTaste ? app.taste.values() : {},
            analyse: true }, PRIORITY.analysis, lines => {
            this.lines = lines
            this.draw()
        })
        this.job = job
        await job.done
        if (this.job === job) {
            this.job = null
            this.refresh()
        }
    }

    show() {
        const { app, ply } = this
        const { game } = app
        const list = byId("analysis-lines")
        if (game.ply !== ply) {
            return
        }
        const turn = game.turnAt(ply)
        const rows = this.lines.filter(Boolean).map(line => {
            const value = whiteView(line, turn)
            return h("li", {}, h("b", { class: value.won < 0 || value.cp < 0 ? "behind" : "ahead" },
                scoreText(value)),
            h("span", {}, this.textOf(line.pv ?? [])))
        })
        list.replaceChildren(...rows)
        const first = this.lines[0]
        byId("depth").textContent = first ? `${first.depth}/${first.seldepth ?? first.depth}` : "–"
        const last = this.lines.filter(Boolean).sort((a, b) => b.nodes - a.nodes)[0]
        byId("nodes").textContent = last ? short.format(last.nodes) : "–"
        byId("rate").textContent = last?.nps ? `${short.format(last.nps)}/s` : "–"
        if (first) {
            const value = whiteView(first, turn)
            const known = game.evalAt(ply)
            if (!known || value.depth >= known.depth) {
                game.setEval(ply, value)
                app.graph.draw()
            }
            app.showScore(value)
        }
        if (this.isOn) {
            app.board.drawArrows(byId("arrows").checked ? this.arrows() : [])
        }
    }

    // A line as people write it. Most lines are the same from one redraw to the next.
    textOf(moves) {
        const shown = moves.slice(0, this.lines.length > MANY ? FEW_MOVES : SHOWN_MOVES)
        const key = shown.join(" ")
        if (!this.texts.has(key)) {
            this.texts.set(key, this.app.game.lineText(this.ply, shown, shown.length))
        }
        return this.texts.get(key)
    }

    arrows() {
        const seen = new Set()
        return this.lines.filter(line => line?.pv?.length).map((line, index) => ({
            kind: index === 0 ? "best" : "other", from: line.pv[0].slice(0, 2),
            to: line.pv[0].slice(2, 4) })).filter(arrow => {
            const name = arrow.from + arrow.to
            return !seen.has(name) && seen.add(name)
        })
    }

    // ---- The whole game.

    async review() {
        const { app } = this
        const { game } = app
        const plies = game.plies
        const time = Math.round(1000 * Number(byId("review-time").value))
        if (plies.length === 0) {
            say("There are no moves to go through.")
            return
        }
        this.isReviewing = true
        const run = {}
        this.run = run
        this.refresh()
        for (let ply = 0; ply <= plies.length && this.run === run; ++ply) {
            this.progress(ply, plies.length + 1)
            const move = plies[ply - 1]
            const value = await this.judge(ply, time)
            if (this.run !== run) {
                return      // stopped
            }
            if (game.plies !== plies || plies[ply - 1] !== move) {
                this.stopReview("stopped, as the game is another one now")
                return
            }
            if (value) {
                game.setEval(ply, value)
                if (move) {
                    const praise = /^![!?]?$/.test(move.mark) ? move.mark : ""
                    move.mark = markOf(game.evalAt(ply - 1), value, move.color === "w") || praise
                }
                app.graph.draw()
                app.moves.showMarks()
            }
        }
        if (this.run === run) {
            this.finishReview(plies)
        }
    }

    // A score of the position behind so many moves, or null.
    async judge(ply, time) {
        const { game, engine } = this.app
        if (ply === game.plies.length && /checkmate|stalemate/.test(game.reason)) {
            return game.reason === "stalemate" ? { cp: 0, depth: 0 }
                : { mate: 0, won: game.result === "1-0" ? 1 : -1, depth: 0 }
        }
        const turn = game.turnAt(ply)
        this.reviewJob = engine.search({ fen: game.start,
            moves: game.plies.slice(0, ply).map(one => one.uci), limits: { movetime: time },
            lines: 1, elo: null, taste: {}, analyse: true }, PRIORITY.review)
        const { lines, cancelled } = await this.reviewJob.done
        return lines[0] && !cancelled ? whiteView(lines[0], turn) : null
    }

    progress(done, all) {
        byId("review-progress").max = all
        byId("review-progress").value = done
        byId("review-text").textContent = `${done} of ${all} positions`
    }

    finishReview(plies) {
        const count = (mark, name, names) => {
            const found = plies.filter(ply => ply.mark === mark).length
            return `${found} ${found === 1 ? name : names}`
        }
        this.run = null
        this.isReviewing = false
        const text = [count("??", "blunder", "blunders"), count("?", "mistake", "mistakes"),
            count("?!", "inaccuracy", "inaccuracies")].join(", ")
        byId("review-text").textContent = text
        say(`The game is gone through: ${text}.`)
        this.app.save()
        this.refresh()
    }

    stopReview(text = "stopped") {
        this.run = null
        this.isReviewing = false
        this.reviewJob?.cancel()
        byId("review-text").textContent = text
        this.app.save()
        this.refresh()
    }

    refresh() {
        byId("analysis").textContent = this.isOn ? "Stop" : "Analyse"
        byId("analysis").setAttribute("aria-pressed", String(this.isOn))
        byId("review").textContent = this.isReviewing ? "Stop" : "Go through the game"
        byId("review-progress").hidden = !this.isReviewing
        const isBusy = Boolean(this.job)
        byId("analysis-state").textContent = this.isOn ? (isBusy ? "searching" : "done") : ""
    }
}
