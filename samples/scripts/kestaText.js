// Texts on their way to a control and back, for JScript.
//
// Only printable ASCII passes the server as it was sent. So client and control write every other UTF-16 code unit as a backslash,
// "u" and four upper-case hexadecimal digits, and also a backslash with a "u" behind it; nothing else is changed.

// The text as the server gets it.
function kestaEncode(text) {
    return text.replace(/[^ -~]|\\(?=u)/g, function (unit) {
        return "\\u" + ("000" + unit.charCodeAt(0).toString(16).toUpperCase()).slice(-4);
    });
}

// The text of an answer or an event.
function kestaDecode(text) {
    return text.replace(/\\u([0-9A-F]{4})/g, function (whole, digits) {
        return String.fromCharCode(parseInt(digits, 16));
    });
}
