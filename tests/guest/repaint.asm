; Repaints the whole screen HZ times a second and counts the frames in pixels, as guests.h
; describes. HZ is given at assembly time (19 or more: the timer's divider has 16 bits).

%define MODE_WIDTH  1920
%define MODE_HEIGHT 1080
%include "boot.inc"

%define COUNTER_BITS  16
%define COUNTER_BLOCK 16
%define COUNTER_STEP  64
%define TIMER_CLOCK   1193182

main:
    mov al, 0x34                ; channel 0, both bytes, rate generator
    out 0x43, al
    mov ax, TIMER_CLOCK / HZ
    out 0x40, al
    mov al, ah
    out 0x40, al
.frame:
    sti
    hlt
    cli
    mov eax, [ticks]
    cmp eax, [drawn]
    je .frame
    mov [drawn], eax            ; a slow machine leaves out frames rather than lagging
    inc dword [frame]
    sti
    call draw_rows
    call draw_counter
    jmp .frame

; Each row has one colour, made of the row and the frame, so that every pixel changes every time.
draw_rows:
    xor edx, edx
    xor ebx, ebx
    mov ecx, MODE_WIDTH
    mov esi, 1
.row:
    mov eax, [frame]
    lea eax, [eax * 4 + edx]
    and eax, 0xff
    mov ebp, edx
    shl ebp, 9
    and ebp, 0xff00
    or eax, ebp
    mov ebp, [frame]
    shl ebp, 17
    and ebp, 0xff0000
    or eax, ebp
    call fill_rectangle
    inc edx
    cmp edx, MODE_HEIGHT
    jb .row
    ret

draw_counter:
    mov ebp, [frame]
    xor ebx, ebx
    xor edx, edx
    mov ecx, COUNTER_BLOCK
    mov esi, COUNTER_BLOCK
.bit:
    xor eax, eax
    shr ebp, 1
    jnc .draw
    mov eax, 0xffffff
.draw:
    call fill_rectangle
    add ebx, COUNTER_STEP
    cmp ebx, COUNTER_STEP * COUNTER_BITS
    jb .bit
    ret

on_timer:
    inc dword [ticks]
    END_OF_INTERRUPT
    iret
on_key:
    push eax
    in al, 0x60                 ; an unread byte would hold back the next ones
    pop eax
    END_OF_INTERRUPT
    iret

ticks: dd 0
drawn: dd 0
frame: dd 0
    FILL_IMAGE
