package kestatext

import (
	"os"
	"strconv"
	"strings"
	"testing"
	"unicode/utf16"
)

// The vectors that other languages' helpers are tested with too, in the file that KESTA_TEXTS names.
func TestEveryVectorHolds(t *testing.T) {
	table, err := os.ReadFile(os.Getenv("KESTA_TEXTS"))
	if err != nil {
		t.Fatal(err)
	}
	held := 0
	for _, line := range strings.Split(string(table), "\n") {
		columns := strings.Split(line, "\t")
		if columns[0] != "both" && columns[0] != "decode" {
			continue
		}
		plain, isWhole := textOf(t, columns[1])
		if decoded := Decode(columns[2]); decoded != plain {
			t.Errorf("%q was decoded to %+q", line, decoded)
		}
		if encoded := Encode(plain); isWhole && columns[0] == "both" && encoded != columns[2] {
			t.Errorf("%q was encoded to %q", line, encoded)
		}
		held++
	}
	if held <= 40 {
		t.Errorf("only %d vectors", held)
	}
}

// textOf is the text of code units in hexadecimal digits, and whether a Go string can hold it.
func textOf(t *testing.T, digits string) (string, bool) {
	var units []uint16
	for _, word := range strings.Fields(digits) {
		unit, err := strconv.ParseUint(word, 16, 16)
		if err != nil {
			t.Fatal(err)
		}
		units = append(units, uint16(unit))
	}
	text := string(utf16.Decode(units))
	isWhole := len(utf16.Encode([]rune(text))) == len(units) && !strings.ContainsRune(text, '\uFFFD')
	return text, isWhole
}
