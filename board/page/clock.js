// The clocks of a game: milliseconds left for each side.

import { byId } from "./dom.js"

const TICK = 100    // milliseconds

export function clockText(milliseconds) {
    const left = Math.max(0, milliseconds)
    const seconds = left < 20000 ? (Math.ceil(left / 100) / 10) : Math.ceil(left / 1000)
    const whole = Math.floor(seconds)
    const text = `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, "0")}`
    return left < 20000 ? `${text}.${Math.round(10 * (seconds - whole))}` : text
}

export class Clock {
    // flag(side) is called once a side has no time left.
    constructor(flag) {
        this.flag = flag
        this.left = null
        this.side = null
    }

    // minutes and increment in seconds; without minutes there is no clock.
    set(minutes, increment) {
        this.halt()
        this.left = minutes ? { w: 60000 * minutes, b: 60000 * minutes } : null
        this.increment = 1000 * increment
        this.show()
    }

    load(left, increment) {
        this.halt()
        this.left = left
        this.increment = increment
        this.show()
    }

    // Takes the time that has gone by off the side that thinks.
    count() {
        if (this.left && this.side) {
            const now = performance.now()
            this.left[this.side] -= now - this.since
            this.since = now
        }
    }

    run(side) {
        this.halt()
        if (!this.left) {
            return
        }
        this.side = side
        this.since = performance.now()
        this.timer = setInterval(() => {
            this.count()
            this.show()
            if (this.left[side] <= 0) {
                this.halt()
                this.flag(side)
            }
        }, TICK)
    }

    halt() {
        this.count()
        clearInterval(this.timer)
        this.side = null
    }

    // The side has moved.
    press(side) {
        if (this.left && this.side === side) {
            this.halt()
            this.left[side] += this.increment
            this.show()
        }
    }

    show() {
        for (const side of ["w", "b"]) {
            const place = byId(`clock-${side}`)
            const text = this.left ? clockText(this.left[side]) : ""
            if (place.textContent !== text) {
                place.textContent = text
            }
            place.classList.toggle("short", Boolean(this.left) && this.left[side] < 20000)
        }
    }
}
