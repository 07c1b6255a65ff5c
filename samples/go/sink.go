//go:build windows

package main

import (
	"runtime"
	"syscall"
	"unsafe"

	"example.org/stations/kestatext"
	"github.com/go-ole/go-ole"
)

// The events' member ids.
const (
	testBridgeEvent = 2
	controlReady    = 3
	customEvent     = 4
)

const (
	success        = 0
	noInterface    = 0x80004002
	notImplemented = 0x80004001
	typeMismatch   = 0x80020005
)

var events = ole.NewGUID("{E3A19C5F-8B27-4D60-A4F3-1C6E92B07D58}") // _IJavaManagerEvents

// sink is the COM object that the server calls with each event. Its first field is what COM expects there. It is not reference
// counted: keep it as long as it is connected.
type sink struct {
	methods *sinkMethods
	handler func(member int32, text string)
}

type sinkMethods struct {
	queryInterface, addRef, release                      uintptr
	getTypeInfoCount, getTypeInfo, getIDsOfNames, invoke uintptr
}

type parameters struct {
	arguments     *ole.VARIANT
	names         *int32
	argumentCount uint32
	nameCount     uint32
}

// Made once: a program can have only a limited number of callbacks.
var methods = &sinkMethods{
	queryInterface: syscall.NewCallback(func(this *sink, iid *ole.GUID, object **sink) uintptr {
		if !ole.IsEqualGUID(iid, ole.IID_IUnknown) && !ole.IsEqualGUID(iid, ole.IID_IDispatch) && !ole.IsEqualGUID(iid, events) {
			*object = nil
			return noInterface
		}
		*object = this
		return success
	}),
	addRef:           syscall.NewCallback(func(this *sink) uintptr { return 1 }),
	release:          syscall.NewCallback(func(this *sink) uintptr { return 1 }),
	getTypeInfoCount: syscall.NewCallback(func(this *sink, count *uint32) uintptr { *count = 0; return success }),
	getTypeInfo:      syscall.NewCallback(func(this *sink, index, locale, info uintptr) uintptr { return notImplemented }),
	getIDsOfNames: syscall.NewCallback(func(this *sink, iid *ole.GUID, names, count, locale, ids uintptr) uintptr {
		return notImplemented
	}),
	invoke: syscall.NewCallback(func(this *sink, member uintptr, iid *ole.GUID, locale, flags uintptr, given *parameters,
		result, exception, wrongArgument uintptr) uintptr {
		if given.argumentCount != 1 || given.arguments.VT != ole.VT_BSTR {
			return typeMismatch
		}
		this.handler(int32(member), kestatext.Decode(given.arguments.ToString()))
		return success
	}),
}

func newSink(handler func(member int32, text string)) *sink {
	return &sink{methods, handler}
}

// connect begins the events of an object; what it returns ends them.
func (s *sink) connect(control *ole.IDispatch) (func(), error) {
	unknown, err := control.QueryInterface(ole.IID_IConnectionPointContainer)
	if err != nil {
		return nil, err
	}
	defer unknown.Release()
	var point *ole.IConnectionPoint
	container := (*ole.IConnectionPointContainer)(unsafe.Pointer(unknown))
	if err := container.FindConnectionPoint(events, &point); err != nil {
		return nil, err
	}
	cookie, err := point.Advise((*ole.IUnknown)(unsafe.Pointer(s)))
	if err != nil {
		point.Release()
		return nil, err
	}
	return func() {
		_ = point.Unadvise(cookie)
		point.Release()
		runtime.KeepAlive(s)
	}, nil
}
