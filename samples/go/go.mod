module example.org/stations

go 1.24

require github.com/go-ole/go-ole v1.3.0

require golang.org/x/sys v0.1.0 // indirect
