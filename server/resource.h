// Numbers of the resources in KESTAserver.rc.
#pragma once

#define IDS_PROJNAME 100
#define IDR_KESTASERVER 101
#define IDR_JAVAMANAGERATLOBJECT 102
