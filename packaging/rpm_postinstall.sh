#!/bin/sh
/usr/libexec/libovrmail1/make-directories
/sbin/ldconfig
