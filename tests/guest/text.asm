; Fills the 80 x 25 text mode with known text, as guests.h describes, and sleeps.

%define ROWS         25
%define COLUMNS      80
%define TEXT_SEGMENT 0xb800
%define IMAGE_SIZE   1048576

org 0x7c00
bits 16
    jmp 0:start
start:
    cli
    xor ax, ax
    mov ds, ax
    mov ss, ax
    mov sp, 0x7c00
    sti
    cld
    mov ax, 3                   ; 80 x 25, cleared
    int 0x10
    mov ax, 0x1003              ; attribute bit 7 is a bright background, not blinking
    xor bx, bx
    int 0x10
    mov ah, 1
    mov cx, 0x2000              ; no cursor: nothing moves on this screen
    int 0x10
    mov ax, TEXT_SEGMENT
    mov es, ax
    xor di, di
    xor bx, bx                  ; the row
.row:
    mov ah, bl                  ; background: the row's number, foreground: white
    and ah, 7
    shl ah, 4
    or ah, 15
    mov si, label
.label:
    lodsb
    test al, al
    jz .number
    stosw
    jmp .label
.number:
    push ax
    mov al, bl
    aam                         ; tens to ah, ones to al
    mov cx, ax
    pop ax
    mov al, ch
    add al, '0'
    stosw
    mov al, cl
    add al, '0'
    stosw
    mov al, ' '
    mov cx, COLUMNS - LABEL_LENGTH - 2
    rep stosw
    inc bx
    cmp bx, ROWS
    jb .row
.sleep:
    hlt
    jmp .sleep

label: db "text guest row "
LABEL_LENGTH equ $ - label
    db 0
    times 510 - ($ - $$) db 0
    dw 0xaa55
    times IMAGE_SIZE - ($ - $$) db 0
