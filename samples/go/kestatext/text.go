// Package kestatext encodes texts on their way to a control and back.
//
// Only printable ASCII passes the server as it was sent. So client and control write every other UTF-16 code unit as a backslash,
// "u" and four upper-case hexadecimal digits, and also a backslash with a "u" behind it; nothing else is changed.
package kestatext

import (
	"fmt"
	"strings"
	"unicode/utf16"
)

const escapeLength = 6 // backslash, "u" and four digits

// Encode makes the text that the server gets.
func Encode(text string) string {
	var encoded strings.Builder
	units := utf16.Encode([]rune(text))
	for index, unit := range units {
		opensEscape := unit == '\\' && index+1 < len(units) && units[index+1] == 'u'
		if unit >= ' ' && unit <= '~' && !opensEscape {
			encoded.WriteByte(byte(unit))
		} else {
			fmt.Fprintf(&encoded, "\\u%04X", unit)
		}
	}
	return encoded.String()
}

// Decode makes the text of an answer or an event. A surrogate without its other half, which a Go string cannot hold, becomes U+FFFD.
func Decode(text string) string {
	var decoded []uint16
	units := utf16.Encode([]rune(text))
	for len(units) > 0 {
		unit, length := next(units)
		decoded = append(decoded, unit)
		units = units[length:]
	}
	return string(utf16.Decode(decoded))
}

// next is the first code unit, or the one that an escape stands for, and how many units that takes.
func next(units []uint16) (uint16, int) {
	if len(units) < escapeLength || units[0] != '\\' || units[1] != 'u' {
		return units[0], 1
	}
	value := 0
	for _, unit := range units[2:escapeLength] {
		digit := strings.IndexRune("0123456789ABCDEF", rune(unit))
		if digit < 0 {
			return units[0], 1
		}
		value = value*16 + digit
	}
	return uint16(value), escapeLength
}
