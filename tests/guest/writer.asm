; Writes its disk from sector 2048 to 65535 again and again, 64 sectors at a time.

%define FIRST 2048
%define LAST  65472
%define COUNT 64
%define IMAGE_SIZE 1048576

org 0x7c00
bits 16
    jmp 0:start
start:
    xor ax, ax
    mov ds, ax
    mov ss, ax
    mov sp, 0x7c00
    mov [drive], dl
.again:
    mov dword [packet + 8], FIRST
.next:
    mov si, packet
    mov ax, 0x4300              ; extended write, without verification
    mov dl, [drive]
    int 0x13
    add dword [packet + 8], COUNT
    cmp dword [packet + 8], LAST
    jbe .next
    jmp .again

drive:  db 0
packet: dw 16, COUNT
        dw 0x8000, 0            ; from where, offset and segment
        dq FIRST
    times 510 - ($ - $$) db 0
    dw 0xaa55
    times IMAGE_SIZE - ($ - $$) db 0
