// The list of moves: each is a button that leads to its position.

import { byId, h } from "./dom.js"
import { scoreText } from "./score.js"

export const MARK_NAMES = { "?!": "inaccuracy", "?": "mistake", "??": "blunder" }

export class MoveList {
    constructor(game) {
        this.game = game
        this.list = byId("moves")
        this.buttons = []
        game.addEventListener("game", () => this.show())
        game.addEventListener("ply", () => this.mark())
    }

    // What is there already is kept: a game of hundreds of moves grows by one.
    show() {
        const { plies } = this.game
        let same = 0
        while (same < Math.min(plies.length, this.buttons.length)
            && this.buttons[same].ply === plies[same]) {
            same += 1
        }
        for (const { button, item } of this.buttons.splice(same)) {
            button.remove()
            if (!item.querySelector("button")) {
                item.remove()
            }
        }
        for (let index = same; index < plies.length; ++index) {
            this.add(plies[index], index + 1)
        }
        this.list.classList.toggle("empty", plies.length === 0)
        this.showMarks()
        this.mark()
    }

    add(ply, place) {
        const { number, isWhite } = this.game.numberOf(place)
        let item = this.buttons.at(-1)?.item
        if (isWhite || !item) {
            item = h("li", {}, h("span", { class: "number" }, `${number}${isWhite ? "." : "…"}`))
            this.list.append(item)
        }
        const text = h("span", {}, ply.san)
        const mark = h("span", { class: "mark" })
        const score = h("span", { class: "score" })
        const button = h("button", { type: "button", class: "move",
            onclick: () => this.game.go(place) }, text, mark, score)
        item.append(button)
        this.buttons.push({ ply, item, button, mark, score })
    }

    showMarks() {
        for (const { ply, button, mark, score } of this.buttons) {
            mark.textContent = ply.mark
            button.dataset.mark = MARK_NAMES[ply.mark] ?? ""
            score.textContent = scoreText(ply.eval)
            button.title = [MARK_NAMES[ply.mark], ply.note].filter(Boolean).join(": ")
        }
    }

    mark() {
        this.current?.removeAttribute("aria-current")
        this.current = this.buttons[this.game.ply - 1]?.button
        this.current?.setAttribute("aria-current", "true")
        // Within the list alone: the page must not jump.
        const box = this.list
        if (this.current) {
            const top = this.current.offsetTop - box.offsetTop
            if (top < box.scrollTop || top + this.current.offsetHeight > box.scrollTop + box.clientHeight) {
                box.scrollTop = top - box.clientHeight / 2
            }
        }
    }
}
