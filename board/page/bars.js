// Score tables as bars: white against black, term by term.

import { h } from "./dom.js"
import { centipawns } from "./score.js"

export const TERMS = { material: "Material", pawns: "Pawns", knights: "Knights",
    bishops: "Bishops", rooks: "Rooks", queens: "Queens", king: "King", ppawns: "Passed pawns",
    other: "Threats and rest" }

// The rows of a table, each with the difference of both sides: { term, white, black, difference,
// whiteParts, blackParts }, in centipawns; the parts are what middle game and endgame add.
export function rowsOf(table) {
    return (table?.rows ?? []).map(row => ({ ...row, difference: row.white - row.black }))
}

function bar(side, value, parts, scale) {
    const length = part => `${Math.min(50, 50 * Math.abs(part) / scale)}%`
    const box = h("span", { class: `bar ${side}` })
    const put = (from, part, kind) => {
        const piece = h("span", { class: `piece ${kind}` })
        const width = Math.min(50, 50 * Math.abs(part) / scale)
        const start = part < 0 ? 50 - width - from : 50 + from
        piece.style.setProperty("left", `${start}%`)
        piece.style.setProperty("width", length(part))
        box.append(piece)
        return width
    }
    if (parts && Math.sign(parts[0]) * Math.sign(parts[1]) >= 0) {
        put(put(0, parts[0], "middle"), parts[1], "end")
    } else if (parts) {     // they pull apart: each to its own side
        put(0, parts[0], "middle")
        put(0, parts[1], "end")
    } else {
        put(0, value, "whole")
    }
    return box
}

// What the bars of a row show. Of the material, thousands on both sides, only what one has more.
function barsOf(row) {
    if (row.term !== "material") {
        return row
    }
    const parts = row.whiteParts.map((part, half) => part - row.blackParts[half])
    return row.difference >= 0
        ? { white: row.difference, whiteParts: parts, black: 0, blackParts: [0, 0] }
        : { white: 0, whiteParts: [0, 0], black: -row.difference,
            blackParts: parts.map(part => -part) }
}

// The element of one row. change is what the last move has made of the difference; ghost the
// difference to compare with.
export function rowElement(row, scale, { change, ghost, onclick } = {}) {
    const name = TERMS[row.term] ?? row.term
    const words = [`${name}: White ${centipawns(row.white)}, Black ${centipawns(row.black)}, `
        + `difference ${centipawns(row.difference)}`]
    const chip = h("span", { class: "change" })
    if (change) {
        chip.textContent = `${change > 0 ? "▲" : "▼"} ${centipawns(Math.abs(change)).slice(1)}`
        chip.classList.add(change > 0 ? "up" : "down")
        words.push(`the last move made ${centipawns(change)}`)
    }
    const difference = h("b", { class: row.difference < 0 ? "behind" : row.difference > 0 ? "ahead" : "" },
        centipawns(row.difference))
    if (ghost !== undefined && ghost !== row.difference) {
        chip.textContent = `${centipawns(row.difference - ghost)}`
        chip.classList.add(row.difference > ghost ? "up" : "down")
        words.push(`${centipawns(row.difference - ghost)} by the taste`)
    }
    const shown = barsOf(row)
    const bars = h("span", { class: "bars", "aria-hidden": "true" },
        bar("white", shown.white, shown.whiteParts, scale),
        bar("black", shown.black, shown.blackParts, scale))
    const parts = [h("span", { class: "term" }, name), bars, difference, chip]
    return onclick ? h("button", { type: "button", class: "term-row", "data-term": row.term,
        "aria-label": words.join("; "), onclick }, parts)
        : h("div", { class: "term-row", "data-term": row.term, title: words.join("; ") }, parts)
}

// Centipawns of the longest bar, so that all fit.
export function scaleOf(...tables) {
    const values = tables.flat().map(barsOf).flatMap(row => [row.white, row.black,
        ...(row.whiteParts ?? []), ...(row.blackParts ?? [])])
    return Math.max(100, ...values.map(Math.abs))
}
