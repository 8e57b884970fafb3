// The graph of the score over the game. It is a slider: the arrow keys go from move to move.

import { byId, s } from "./dom.js"
import { MARK_NAMES } from "./moves.js"
import { chanceOf, scoreText } from "./score.js"

const HEIGHT = 110
const EDGE = 4

export class Graph {
    constructor(game) {
        this.game = game
        this.place = byId("graph")
        this.place.addEventListener("pointerdown", event => this.point(event))
        this.place.addEventListener("pointermove", event => event.buttons && this.point(event))
        this.place.addEventListener("keydown", event => this.press(event))
        new ResizeObserver(() => this.draw()).observe(this.place)
        game.addEventListener("game", () => this.draw())
        game.addEventListener("ply", () => this.draw())
    }

    point(event) {
        const { left, width } = this.place.getBoundingClientRect()
        const share = (event.clientX - left - EDGE) / (width - 2 * EDGE)
        this.game.go(Math.round(share * this.game.plies.length))
    }

    press(event) {
        const { game } = this
        const steps = { ArrowLeft: -1, ArrowDown: -1, ArrowRight: 1, ArrowUp: 1, PageUp: 10,
            PageDown: -10, Home: -Infinity, End: Infinity }
        if (event.key in steps) {
            game.go(game.ply + steps[event.key])
            event.preventDefault()
            event.stopPropagation()
        }
    }

    draw() {
        const { game, place } = this
        const count = game.plies.length
        // Without scores there is nothing to see.
        place.hidden = !game.plies.some(ply => ply.eval)
        const width = place.clientWidth
        place.setAttribute("aria-valuemax", count)
        place.setAttribute("aria-valuenow", game.ply)
        const move = game.lastMove
        place.setAttribute("aria-valuetext", move
            ? `${game.numberOf(game.ply).number} ${move.san} ${scoreText(move.eval)}` : "the start")
        if (!width) {
            return
        }
        const x = ply => EDGE + (width - 2 * EDGE) * (count ? ply / count : 0)
        const y = chance => EDGE + (HEIGHT - 2 * EDGE) * (1 - chance)
        const points = []
        for (let ply = 0; ply <= count; ++ply) {
            const value = game.evalAt(ply)
            if (value) {
                points.push({ ply, x: x(ply), y: y(chanceOf(value)) })
            }
        }
        const line = points.map(point => `${point.x.toFixed(1)},${point.y.toFixed(1)}`)
        const drawing = s("svg", { viewBox: `0 0 ${width} ${HEIGHT}`, width, height: HEIGHT,
            "aria-hidden": "true" },
        points.length > 1 ? s("polygon", { class: "area", points:
            [`${points[0].x},${HEIGHT}`, ...line, `${points.at(-1).x},${HEIGHT}`].join(" ") }) : null,
        s("line", { class: "middle", x1: 0, x2: width, y1: y(0.5), y2: y(0.5) }),
        points.length > 1 ? s("polyline", { class: "line", points: line.join(" ") }) : null,
        ...points.filter(({ ply }) => MARK_NAMES[game.plies[ply - 1]?.mark]).map(point =>
            s("circle", { class: `dot ${MARK_NAMES[game.plies[point.ply - 1].mark]}`,
                cx: point.x, cy: point.y, r: 4.5 })),
        count ? s("line", { class: "now", x1: x(game.ply), x2: x(game.ply), y1: 0, y2: HEIGHT })
            : null)
        place.replaceChildren(drawing)
    }
}
