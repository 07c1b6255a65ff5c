//go:build windows

// A client in Go: fills the control's table, lets it add up the values, and takes the events with the sums.
//
// usage: stations [ROUNDS]
package main

import (
	"errors"
	"fmt"
	"log"
	"os"
	"runtime"
	"strconv"

	"example.org/stations/kestatext"
	"github.com/go-ole/go-ole"
	"github.com/go-ole/go-ole/oleutil"
)

func main() {
	rounds := 3
	if len(os.Args) > 1 {
		var err error
		if rounds, err = strconv.Atoi(os.Args[1]); err != nil {
			log.Fatal(err)
		}
	}
	// The object belongs to the thread that creates it.
	runtime.LockOSThread()
	if err := run(rounds); err != nil {
		log.Fatal(err)
	}
}

func run(rounds int) error {
	if err := ole.CoInitializeEx(0, ole.COINIT_APARTMENTTHREADED); err != nil {
		return err
	}
	defer ole.CoUninitialize()
	unknown, err := oleutil.CreateObject("KESTAserver.JavaManager.1")
	if err != nil {
		return err
	}
	defer unknown.Release()
	control, err := unknown.QueryInterface(ole.IID_IDispatch)
	if err != nil {
		return err
	}
	defer control.Release()

	sums := 0
	sink := newSink(func(member int32, text string) {
		if member == customEvent {
			sums++
		}
	})
	disconnect, err := sink.connect(control)
	if err != nil {
		return err
	}
	defer disconnect()

	// Without a window: 0. A program with one gives the handle of the pane that holds the frame.
	if _, err := call(control, "pushWindowHandle", 0); err != nil {
		return err
	}
	name, err := call(control, "setUsedControl", "Stations", "1.0")
	if err != nil {
		return err
	}
	fmt.Println(name)
	for value := 1; value <= rounds; value++ {
		if _, err := call(control, "setProperty", "rows", fmt.Sprintf("Tromsø;%d|東京;%d", value, value)); err != nil {
			return err
		}
		if _, err := call(control, "callMethod", "sum", ""); err != nil {
			return err
		}
	}
	rows, err := call(control, "getProperty", "rows")
	if err != nil {
		return err
	}
	fmt.Println(rows)
	for sums < rounds { // COM delivers the events as messages of this thread
		var message ole.Msg
		if result, err := ole.GetMessage(&message, 0, 0, 0); result < 0 {
			return err
		}
		ole.DispatchMessage(&message)
	}
	fmt.Printf("%d of %d events\n", sums, rounds)
	_, err = call(control, "callMethod", "nonsense", "")
	fmt.Println("a call failed:", err) // what the server logged about the failure
	return nil
}

// call calls a method with its texts encoded; the answer is decoded. The error has the server's text.
func call(control *ole.IDispatch, method string, arguments ...any) (string, error) {
	for index, argument := range arguments {
		if text, isText := argument.(string); isText {
			arguments[index] = kestatext.Encode(text)
		}
	}
	answer, err := oleutil.CallMethod(control, method, arguments...)
	if failure, isOle := err.(*ole.OleError); isOle && failure.Description() != "" {
		return "", errors.New(failure.Description())
	}
	if err != nil {
		return "", err
	}
	defer answer.Clear()
	return kestatext.Decode(answer.ToString()), nil
}
