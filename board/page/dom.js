// Small helpers for the page's elements.

const SVG = "http://www.w3.org/2000/svg"
const PROPERTIES = new Set(["value", "checked", "disabled", "textContent", "hidden", "open"])

function fill(node, attributes, children) {
    for (const [name, value] of Object.entries(attributes)) {
        if (name.startsWith("on")) {
            node.addEventListener(name.slice(2), value)
        } else if (PROPERTIES.has(name)) {
            node[name] = value
        } else if (value !== undefined && value !== null && value !== false) {
            node.setAttribute(name, value === true ? "" : value)
        }
    }
    node.append(...children.flat().filter(child => child !== null && child !== undefined))
    return node
}

// An element with attributes, listeners (onclick) and children. Text is never read as HTML.
export function h(tag, attributes = {}, ...children) {
    return fill(document.createElement(tag), attributes, children)
}

// The same for a drawing.
export function s(tag, attributes = {}, ...children) {
    return fill(document.createElementNS(SVG, tag), attributes, children)
}

export const byId = id => document.getElementById(id)

// A function that runs at most once in so many milliseconds, the last time for sure, and never takes
// more than half of the time: a slow machine must find time for whoever uses the page. It counts
// its runs, which a test looks at.
export function limited(work, milliseconds) {
    let next = -Infinity
    let timer = null
    const run = () => {
        timer = null
        call.runs += 1
        const begun = performance.now()
        work()
        const ended = performance.now()
        next = Math.max(begun + milliseconds, ended + (ended - begun))
    }
    const call = () => {
        if (timer === null) {
            timer = setTimeout(run, Math.max(0, next - performance.now()))
        }
    }
    call.runs = 0
    return call
}

// Runs once nothing has called it for so many milliseconds.
export function settled(work, milliseconds) {
    let timer = null
    return () => {
        clearTimeout(timer)
        timer = setTimeout(work, milliseconds)
    }
}

// Says a sentence to screen readers and in the line below the board.
export function say(text) {
    const line = byId("status")
    if (line.textContent !== text) {
        line.textContent = text
    }
}

// Lets the browser save a text as a file.
export function saveText(name, text, type = "text/plain") {
    const address = URL.createObjectURL(new Blob([text], { type }))
    const link = h("a", { href: address, download: name })
    link.click()
    setTimeout(() => URL.revokeObjectURL(address), 10000)
}

// What is kept in the browser, in the storage of that name; a browser that keeps nothing does no
// harm. Where it is forbidden, the name alone throws.
export const memory = {
    read(key, storage = "localStorage") {
        try {
            return JSON.parse(window[storage].getItem(`vesk.${key}`))
        } catch {
            return null
        }
    },
    write(key, value, storage = "localStorage") {
        try {
            window[storage].setItem(`vesk.${key}`, JSON.stringify(value))
        } catch {
            // Full or forbidden: the page works on, and forgets.
        }
    },
}
